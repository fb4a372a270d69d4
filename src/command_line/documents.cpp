#include "src/command_line/documents.h"

#include <array>
#include <charconv>
#include <string_view>

#include "kestin_base/clock.h"

namespace {

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

std::string float_text(double value) {
    constexpr int precision = 6;
    std::array<char, 32> text;
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value,
                                            std::chars_format::general, precision);
    return {text.data(), end};
}

// "key":value
std::string member(std::string_view key, const std::string& value) {
    return quoted(key) + ':' + value;
}

std::string local_time_text(std::uint64_t time) {
    return Kestin::Base::kestin_get_datetime(Kestin::Base::kestin_make_localtime(time), "-", ":",
                                             " ");
}

}  // namespace

const char* node_type_text(NodeType type) {
    switch (type) {
        case NodeType::upload:
            return "upload";
        case NodeType::download:
            return "download";
        case NodeType::message:
            break;
    }
    return "message";
}

std::string escape_backslashes(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text) {
        if (byte == '\\') {
            escaped += '\\';
        }
        escaped += byte;
    }
    return escaped;
}

void make_node_document(const NodeRecord& record, std::string& out) {
    const std::string document = '{' + member("node_id", std::to_string(record.node_id)) + ',' +
                                 member("node_ip", quoted(record.node_ip)) + ',' +
                                 member("node_port", std::to_string(record.node_port)) + ',' +
                                 member("node_type", quoted(node_type_text(record.node_type))) +
                                 ',' + member("node_speed", float_text(record.node_speed)) + ',' +
                                 member("node_filename", quoted(record.node_filename)) + ',' +
                                 member("node_filesize", std::to_string(record.node_filesize)) +
                                 ',' + member("node_progress", float_text(record.node_progress)) +
                                 ',' + member("node_user_info", record.node_user_info) + '}';
    out += escape_backslashes(document);
}

void make_transmit_list_document(const std::list<NodeRecord>& records, std::string& out) {
    out += R"({"transmit_nodes":[)";
    const char* separator = "";
    for (const NodeRecord& record : records) {
        out += separator;
        make_node_document(record, out);
        separator = ",";
    }
    out += "]}";
}

void make_transmit_statistics_document(const TransmitStatistics& statistics, std::string& out) {
    const auto number = [](std::string_view key, std::uint64_t value) {
        return member(key, std::to_string(value)) + ',';
    };
    const auto speed = [](std::string_view key, double value) {
        return member(key, float_text(value)) + ',';
    };
    out =
        R"({"transmit_statistics":{)" +
        number("message_connection_count", statistics.message_connection_count) +
        number("upload_connection_count", statistics.upload_connection_count) +
        number("download_connection_count", statistics.download_connection_count) +
        speed("upload_max_speed", statistics.upload_max_speed) +
        speed("download_max_speed", statistics.download_max_speed) +
        speed("upload_total_speed", statistics.upload_total_speed) +
        speed("download_total_speed", statistics.download_total_speed) +
        member("last_data_update_time", quoted(local_time_text(statistics.last_data_update_time))) +
        "}}";
}
