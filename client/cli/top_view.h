#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "client/cli/json.h"
#include "client/cli/server_report.h"

// What `top` shows of one look at the server. Pure.
namespace transmit::cli {

struct Look {
    StatisticsReport totals;
    std::vector<NodeReport> nodes;
    NodeCounts excess{};  // of `nodes` over the server's counts
};

// Room on the terminal. Unbounded where output is no terminal: a line is then one record.
struct Screen {
    std::size_t lines = std::numeric_limits<std::size_t>::max();
    std::size_t columns = std::numeric_limits<std::size_t>::max();
};

// Totals, notices and one line for each connection, none of them wider or longer than the screen,
// and without any character that could steer it. The rest of the connections is counted.
std::string top_view(const Look& look, const Screen& screen);

// The statistics document, and one record of the list, with the server's keys. What is no number
// becomes null, user information that is no JSON object a text, and a row in doubt says so in a
// member "doubt".
Json statistics_json(const StatisticsReport& totals);
Json node_json(const NodeReport& node);

}  // namespace transmit::cli
