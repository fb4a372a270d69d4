#include "client/cli/server_report.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace transmit::cli {
namespace {

constexpr std::string_view digits = "0123456789";

// Reads a text from its front, piece by piece, in the shapes that the server writes. A piece of
// another shape fails and consumes nothing.
class ShapeReader {
  public:
    explicit ShapeReader(std::string_view text) : text_(text) {}

    std::size_t position() const { return position_; }

    bool literal(std::string_view expected) {
        const bool found = text_.substr(position_).starts_with(expected);
        position_ += found ? expected.size() : 0;
        return found;
    }
    template <typename Integer>
    bool integer(Integer& value) {
        constexpr std::size_t most_digits = 20;
        return number(value, digits, most_digits);
    }
    // As printf's %g writes it, "inf" and "nan" included.
    bool real(double& value) {
        constexpr std::size_t most_characters = 16;
        return number(value, "0123456789.e+-infa", most_characters);
    }
    // At most `most` characters of a set.
    std::string_view run(std::string_view allowed, std::size_t most) {
        const std::string_view ahead = text_.substr(position_, most);
        const auto piece = ahead.substr(0, ahead.find_first_not_of(allowed));
        position_ += piece.size();
        return piece;
    }

  private:
    template <typename Number>
    bool number(Number& value, std::string_view allowed, std::size_t most) {
        const std::size_t start = position_;
        const auto piece = run(allowed, most);
        const char* const end = piece.data() + piece.size();
        const auto [stop, error] = std::from_chars(piece.data(), end, value);
        const bool valid = error == std::errc() && stop == end;
        position_ = valid ? position_ : start;
        return valid;
    }

    std::string_view text_;
    std::size_t position_ = 0;
};

constexpr std::string_view start_of_list = R"({"transmit_nodes":[)";
constexpr std::string_view start_of_head = R"({"node_id":)";
constexpr std::string_view start_of_tail = R"(","node_filesize":)";

// A piece of the document, from `begin` up to `end`, and what it says.
template <typename Content>
struct Found {
    std::size_t begin;
    std::size_t end;
    Content content;
};

bool read_kind(ShapeReader& reader, NodeKind& kind) {
    constexpr std::array<std::string_view, node_kinds> names{"message", "upload", "download"};
    const auto* const found =
        std::find_if(names.begin(), names.end(), [&](auto name) { return reader.literal(name); });
    kind = static_cast<NodeKind>(found - names.begin());
    return found != names.end();
}

// What the server writes before a file name.
bool read_piece(ShapeReader& reader, NodeReport& node) {
    constexpr std::size_t longest_address = 15;
    bool good = reader.literal(start_of_head) && reader.integer(node.id) &&
                reader.literal(R"(,"node_ip":")");
    node.address = good ? reader.run("0123456789.", longest_address) : "";
    good = good && reader.literal(R"(","node_port":)") && reader.integer(node.port) &&
           reader.literal(R"(,"node_type":")") && read_kind(reader, node.kind) &&
           reader.literal(R"(","node_speed":)") && reader.real(node.speed) &&
           reader.literal(R"(,"node_filename":")");
    return good;
}

// What the server writes between a file name and user information.
struct Tail {
    std::uint64_t size = 0;
    double progress = 0;
};

bool read_piece(ShapeReader& reader, Tail& tail) {
    return reader.literal(start_of_tail) && reader.integer(tail.size) &&
           reader.literal(R"(,"node_progress":)") && reader.real(tail.progress) &&
           reader.literal(R"(,"node_user_info":{)");
}

// The next place at or after `from` where a piece stands whole. No piece can begin within another:
// only its first characters hold those that it begins with.
template <typename Content>
std::optional<Found<Content>> find_piece(std::string_view text, std::string_view start,
                                         std::size_t from) {
    for (auto begin = text.find(start, from); begin != std::string_view::npos;
         begin = text.find(start, begin + 1)) {
        ShapeReader reader(text.substr(begin));
        Content content;
        if (read_piece(reader, content)) {
            return Found<Content>{begin, begin + reader.position(), std::move(content)};
        }
    }
    return std::nullopt;
}

std::string undoubled(std::string_view text) {
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        result += text[index];
        index += text.substr(index).starts_with(R"(\\)") ? 1 : 0;
    }
    return result;
}

// Fills in what stands behind a head, up to the next head or the document's end: `whole` if it is
// followed by what follows a record. The two texts can be told apart if only one tail is there.
void read_texts(std::string_view texts, bool whole, NodeReport& node) {
    const auto tail = find_piece<Tail>(texts, start_of_tail, 0);
    if (!whole || !tail || find_piece<Tail>(texts, start_of_tail, tail->end)) {
        node.name = undoubled(texts);
        node.progress = std::numeric_limits<double>::quiet_NaN();
        node.doubt = Doubt::texts;
        return;
    }
    node.name = undoubled(texts.substr(0, tail->begin));
    node.size = tail->content.size;
    node.progress = tail->content.progress;
    node.user_info = texts.substr(tail->end - 1);
}

NodeReport read_record(Found<NodeReport>& head, std::string_view texts, std::string_view end) {
    const bool whole = texts.ends_with(end);
    texts.remove_suffix(whole ? end.size() : 0);
    read_texts(texts, whole, head.content);
    return std::move(head.content);
}

}  // namespace

std::optional<std::vector<NodeReport>> read_nodes(std::string_view document) {
    if (!document.starts_with(start_of_list)) {
        return std::nullopt;
    }
    std::vector<NodeReport> nodes;
    auto head = find_piece<NodeReport>(document, start_of_head, start_of_list.size());
    while (head) {
        auto next = find_piece<NodeReport>(document, start_of_head, head->end);
        const std::size_t end = next ? next->begin : document.size();
        nodes.push_back(
            read_record(*head, document.substr(head->end, end - head->end), next ? "}," : "}]}"));
        head = std::move(next);
    }
    return nodes;
}

std::optional<StatisticsReport> read_statistics(std::string_view document) {
    constexpr std::size_t longest_time = 32;
    StatisticsReport totals;
    ShapeReader reader(document);
    const bool good =
        reader.literal(R"({"transmit_statistics":{"message_connection_count":)") &&
        reader.integer(totals.counts[0]) && reader.literal(R"(,"upload_connection_count":)") &&
        reader.integer(totals.counts[1]) && reader.literal(R"(,"download_connection_count":)") &&
        reader.integer(totals.counts[2]) && reader.literal(R"(,"upload_max_speed":)") &&
        reader.real(totals.upload_max_speed) && reader.literal(R"(,"download_max_speed":)") &&
        reader.real(totals.download_max_speed) && reader.literal(R"(,"upload_total_speed":)") &&
        reader.real(totals.upload_speed) && reader.literal(R"(,"download_total_speed":)") &&
        reader.real(totals.download_speed) && reader.literal(R"(,"last_data_update_time":")");
    totals.time = good ? reader.run("0123456789-: ", longest_time) : "";
    if (!good || !reader.literal(R"("}})") || reader.position() != document.size()) {
        return std::nullopt;
    }
    return totals;
}

NodeCounts excess_of(const std::vector<NodeReport>& nodes, const NodeCounts& counted) {
    NodeCounts excess{};
    for (const NodeReport& node : nodes) {
        ++excess[static_cast<std::size_t>(node.kind)];
    }
    for (std::size_t kind = 0; kind < node_kinds; ++kind) {
        excess[kind] -= counted[kind];
    }
    return excess;
}

void ExcessWatch::mark(std::vector<NodeReport>& nodes, const NodeCounts& excess) {
    for (std::size_t kind = 0; kind < node_kinds; ++kind) {
        looks_left_[kind] =
            excess[kind] > 0 ? looks_remembered : std::max(looks_left_[kind] - 1, 0);
    }
    bool next_in_doubt = false;
    std::for_each(nodes.rbegin(), nodes.rend(), [&](NodeReport& node) {
        const bool in_doubt = looks_left_[static_cast<std::size_t>(node.kind)] > 0;
        if (in_doubt) {
            node.doubt = Doubt::row;
        } else if (next_in_doubt) {
            node.doubt = Doubt::texts;
        }
        next_in_doubt = in_doubt;
    });
}

}  // namespace transmit::cli
