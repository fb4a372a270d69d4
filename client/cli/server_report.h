#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace transmit::cli {

// One connection of the server, as its command port tells.
struct NodeReport {
    std::string peer;
    std::string type;
    double speed = 0;     // bytes per second
    double progress = 0;  // per cent
    std::uint64_t size = 0;
    std::string name;
};

// The server's totals; speeds in bytes per second.
struct StatisticsReport {
    std::uint64_t messages = 0;
    std::uint64_t uploads = 0;
    std::uint64_t downloads = 0;
    double upload_speed = 0;
    double download_speed = 0;
    std::string time;
};

// A file name that holds a quote or bytes that are no UTF-8 spoils the server's JSON: each
// connection is read by itself, and such a one without the name.
std::vector<NodeReport> read_nodes(std::string_view document);
std::optional<StatisticsReport> read_statistics(std::string_view document);

}  // namespace transmit::cli
