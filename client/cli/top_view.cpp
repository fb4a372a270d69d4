#include "client/cli/top_view.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <string_view>

#include "client/cli/text.h"

namespace transmit::cli {
namespace {

constexpr std::array<const char*, node_kinds> kind_names{"message", "upload", "download"};
constexpr std::array<const char*, node_kinds> kind_nouns{"other connection", "upload", "download"};

const char* name_of(NodeKind kind) {
    return kind_names[static_cast<std::size_t>(kind)];
}

std::string speed_text(double speed) {
    return shown_size(speed) + "/s";
}

// A client announces the size that its progress is measured by, so any number can come out.
std::string progress_text(double percent) {
    if (!std::isfinite(percent) || percent < 0) {
        return "?";
    }
    if (percent > 100) {
        return "> 100 %";
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << percent << " %";
    return text.str();
}

char mark_of(Doubt doubt) {
    return doubt == Doubt::row ? '!' : doubt == Doubt::texts ? '?' : ' ';
}

std::string row_text(char mark, std::string_view peer, std::string_view kind,
                     std::string_view speed, std::string_view progress, std::string_view size,
                     std::string_view name) {
    std::ostringstream text;
    text << mark << ' ' << std::left << std::setw(21) << peer << "  " << std::setw(8) << kind
         << std::right << "  " << std::setw(12) << speed << "  " << std::setw(7) << progress << "  "
         << std::setw(10) << size << "  " << name;
    return text.str();
}

// The end of a path tells more than its beginning.
std::string row_text(const NodeReport& node, std::size_t most) {
    const std::string figures =
        row_text(mark_of(node.doubt), node.address + ":" + std::to_string(node.port),
                 name_of(node.kind), speed_text(node.speed), progress_text(node.progress),
                 node.size ? shown_size(static_cast<double>(*node.size)) : "?", "");
    return figures + ending(shown(node.name), most - std::min(most, columns(figures)));
}

std::string totals_text(const StatisticsReport& totals) {
    const auto count = [&](NodeKind kind) {
        const auto index = static_cast<std::size_t>(kind);
        return counted(static_cast<std::uint64_t>(totals.counts[index]), kind_nouns[index]);
    };
    return count(NodeKind::upload) + " at " + speed_text(totals.upload_speed) + ", " +
           count(NodeKind::download) + " at " + speed_text(totals.download_speed) + ", " +
           count(NodeKind::message);
}

bool any_in(const std::vector<NodeReport>& nodes, Doubt doubt) {
    return std::any_of(nodes.begin(), nodes.end(),
                       [&](const NodeReport& node) { return node.doubt == doubt; });
}

std::vector<std::string> notices(const Look& look) {
    std::vector<std::string> lines;
    for (std::size_t kind = 0; kind < node_kinds; ++kind) {
        const std::int64_t excess = look.excess[kind];
        if (excess != 0) {
            lines.push_back(
                "The list shows " +
                counted(static_cast<std::uint64_t>(std::abs(excess)), kind_nouns[kind]) +
                (excess > 0 ? " more" : " fewer") + " than the server counts.");
        }
    }
    if (any_in(look.nodes, Doubt::row)) {
        lines.emplace_back("! a client's text may have forged the row");
    }
    if (any_in(look.nodes, Doubt::texts)) {
        lines.emplace_back("? a client's text may have forged file, size and progress");
    }
    return lines;
}

std::vector<std::string> head_lines(const Look& look) {
    std::vector<std::string> lines{look.totals.time, totals_text(look.totals)};
    const auto noticed = notices(look);
    lines.insert(lines.end(), noticed.begin(), noticed.end());
    lines.emplace_back();
    lines.push_back(row_text(' ', "PEER", "TYPE", "SPEED", "DONE", "SIZE", "FILE"));
    return lines;
}

Json number_json(double value) {
    return std::isfinite(value) ? Json(value) : Json();
}

Json user_info_json(const std::string& text) {
    constexpr std::size_t longest_text = 1023;  // that the server keeps
    Json object = Json::parse(text.substr(0, longest_text), nullptr, false);
    return object.is_object() && text.size() <= longest_text ? object : Json(text);
}

}  // namespace

std::string top_view(const Look& look, const Screen& screen) {
    std::vector<std::string> lines = head_lines(look);
    const std::size_t rows = look.nodes.size();
    const std::size_t room = screen.lines - std::min(screen.lines, lines.size());
    const std::size_t shown_rows = rows <= room ? rows : room - std::min<std::size_t>(room, 1);
    for (std::size_t row = 0; row < shown_rows; ++row) {
        lines.push_back(row_text(look.nodes[row], screen.columns));
    }
    if (shown_rows < rows) {
        lines.push_back("and " + std::to_string(rows - shown_rows) + " more");
    }
    std::string text;
    for (const std::string& line : lines) {
        text += beginning(line, screen.columns) + "\n";
    }
    return text;
}

Json statistics_json(const StatisticsReport& totals) {
    return {{"transmit_statistics",
             {{"message_connection_count", totals.counts[0]},
              {"upload_connection_count", totals.counts[1]},
              {"download_connection_count", totals.counts[2]},
              {"upload_max_speed", number_json(totals.upload_max_speed)},
              {"download_max_speed", number_json(totals.download_max_speed)},
              {"upload_total_speed", number_json(totals.upload_speed)},
              {"download_total_speed", number_json(totals.download_speed)},
              {"last_data_update_time", totals.time}}}};
}

Json node_json(const NodeReport& node) {
    Json object{{"node_id", node.id},
                {"node_ip", node.address},
                {"node_port", node.port},
                {"node_type", name_of(node.kind)},
                {"node_speed", number_json(node.speed)},
                {"node_filename", node.name},
                {"node_filesize", node.size ? Json(*node.size) : Json()},
                {"node_progress", number_json(node.progress)},
                {"node_user_info", node.size ? user_info_json(node.user_info) : Json()}};
    if (node.doubt != Doubt::none) {
        object["doubt"] = node.doubt == Doubt::row ? "row" : "texts";
    }
    return object;
}

}  // namespace transmit::cli
