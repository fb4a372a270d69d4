#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reads the documents of the command port. docs/monitoring.md states the rules, which the
// monitoring page shares (www/monitor/documents.js).
namespace transmit::cli {

enum class NodeKind : std::uint8_t { message, upload, download };
constexpr std::size_t node_kinds = 3;

// How much of a row a client's text may have forged.
enum class Doubt : std::uint8_t {
    none,
    texts,  // name, size, progress and user information
    row,    // all of it
};

// One connection, as the list shows it.
struct NodeReport {
    std::uint64_t id = 0;
    std::string address;
    std::uint16_t port = 0;
    NodeKind kind = NodeKind::message;
    double speed = 0;  // bytes per second
    std::string name;  // if size is absent, all that the client wrote: name and user information
    std::optional<std::uint64_t> size;
    double progress = 0;  // per cent; may be negative, infinite or no number
    std::string user_info;
    Doubt doubt = Doubt::none;
};

// Numbers of connections by NodeKind.
using NodeCounts = std::array<std::int64_t, node_kinds>;

// The server's totals; speeds in bytes per second.
struct StatisticsReport {
    NodeCounts counts{};
    double upload_max_speed = 0;
    double download_max_speed = 0;
    double upload_speed = 0;
    double download_speed = 0;
    std::string time;
};

// Every record of the list, in its order, and whatever a client's text imitates of records. Takes
// linear time, and memory in proportion to the document. Nothing if it is no list.
std::optional<std::vector<NodeReport>> read_nodes(std::string_view document);
std::optional<StatisticsReport> read_statistics(std::string_view document);

// How many connections of each kind the list holds beyond the server's count; negative if fewer.
NodeCounts excess_of(const std::vector<NodeReport>& nodes, const NodeCounts& counted);

// Remembers which kinds were in excess lately: a client that connects and disconnects between the
// two requests can make the numbers agree now and then.
class ExcessWatch {
  public:
    static constexpr int looks_remembered = 3;

    // Takes the excess of one look and marks its rows.
    void mark(std::vector<NodeReport>& nodes, const NodeCounts& excess);

  private:
    std::array<int, node_kinds> looks_left_{};
};

}  // namespace transmit::cli
