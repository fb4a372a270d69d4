#include "client/cli/server_report.h"

#include <nlohmann/json.hpp>

namespace transmit::cli {
namespace {

using Json = nlohmann::json;

constexpr std::string_view start_of_node = "{\"node_id\":";
constexpr std::string_view name_of_node = ",\"node_filename\":";

Json parse(std::string_view text) {
    return Json::parse(text.begin(), text.end(), nullptr, false);
}

// Whether it has the wanted type. A number with a fraction, or too large for 64 bits, is no count.
template <typename Value>
bool is_a(const Json& field) {
    if constexpr (std::is_same_v<Value, std::string>) {
        return field.is_string();
    } else if constexpr (std::is_floating_point_v<Value>) {
        return field.is_number();
    } else {
        return field.is_number_unsigned();
    }
}

// A field of the wanted type, or nothing in its place.
template <typename Value>
Value field(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && is_a<Value>(*found) ? found->get<Value>() : Value();
}

// One node's object, up to its closing brace: behind it stand the commas and brackets of the list.
std::string_view object_text(std::string_view text) {
    return text.substr(0, text.find_last_of('}') + 1);
}

NodeReport read_node(std::string_view text) {
    Json object = parse(object_text(text));
    std::string name = "(unreadable)";
    if (object.is_object()) {
        name = field<std::string>(object, "node_filename");
    } else {
        object = parse(std::string(text.substr(0, text.find(name_of_node))) + "}");
    }
    if (!object.is_object()) {
        return {.peer = "?", .type = "?", .name = name};
    }
    return {field<std::string>(object, "node_ip") + ":" +
                std::to_string(field<std::uint64_t>(object, "node_port")),
            field<std::string>(object, "node_type"),
            field<double>(object, "node_speed"),
            field<double>(object, "node_progress"),
            field<std::uint64_t>(object, "node_filesize"),
            std::move(name)};
}

}  // namespace

std::vector<NodeReport> read_nodes(std::string_view document) {
    if (document.ends_with("]}")) {
        document.remove_suffix(2);
    }
    std::vector<NodeReport> nodes;
    auto start = document.find(start_of_node);
    while (start != std::string_view::npos) {
        const auto next = document.find(start_of_node, start + 1);
        nodes.push_back(read_node(document.substr(start, next - start)));
        start = next;
    }
    return nodes;
}

std::optional<StatisticsReport> read_statistics(std::string_view document) {
    const Json whole = parse(document);
    if (!whole.is_object() || !whole.contains("transmit_statistics") ||
        !whole["transmit_statistics"].is_object()) {
        return std::nullopt;
    }
    const Json& totals = whole["transmit_statistics"];
    return StatisticsReport{field<std::uint64_t>(totals, "message_connection_count"),
                            field<std::uint64_t>(totals, "upload_connection_count"),
                            field<std::uint64_t>(totals, "download_connection_count"),
                            field<double>(totals, "upload_total_speed"),
                            field<double>(totals, "download_total_speed"),
                            field<std::string>(totals, "last_data_update_time")};
}

}  // namespace transmit::cli
