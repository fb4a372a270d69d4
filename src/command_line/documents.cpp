#include "src/command_line/documents.h"

#include <array>
#include <charconv>
#include <string_view>

#include "kestin_base/clock.h"

namespace {

// Writes the members of an object, `"key":value`, to the end of a text. Lists of thousands of nodes
// are polled: no piece is made apart and copied.
class MemberWriter {
  public:
    explicit MemberWriter(std::string& out) : out_(out) {}

    void number(std::string_view key, std::uint64_t value) {
        begin(key);
        append_number(value);
    }
    void number(std::string_view key, double value) {
        constexpr int precision = 6;
        begin(key);
        append_number(value, std::chars_format::general, precision);
    }
    void text(std::string_view key, std::string_view value) {
        begin(key);
        out_.append(1, '"').append(value).append(1, '"');
    }
    void object(std::string_view key, std::string_view value) {
        begin(key);
        out_ += value;
    }

  private:
    void begin(std::string_view key) {
        out_.append(separator_).append(1, '"').append(key).append("\":");
        separator_ = ",";
    }
    void append_number(auto value, auto... form) {
        std::array<char, 32> digits;
        const auto [end, error] =
            std::to_chars(digits.data(), digits.data() + digits.size(), value, form...);
        out_.append(digits.data(), end);
    }

    std::string& out_;
    const char* separator_ = "";
};

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
    const std::size_t begin = out.size();
    out += '{';
    MemberWriter members(out);
    members.number("node_id", record.node_id);
    members.text("node_ip", record.node_ip);
    members.number("node_port", std::uint64_t{record.node_port});
    members.text("node_type", node_type_text(record.node_type));
    members.number("node_speed", record.node_speed);
    members.text("node_filename", record.node_filename);
    members.number("node_filesize", record.node_filesize);
    members.number("node_progress", record.node_progress);
    members.object("node_user_info", record.node_user_info);
    out += '}';
    if (out.find('\\', begin) != std::string::npos) {
        out.replace(begin, std::string::npos, escape_backslashes(out.substr(begin)));
    }
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
    out = R"({"transmit_statistics":{)";
    MemberWriter members(out);
    members.number("message_connection_count", statistics.message_connection_count);
    members.number("upload_connection_count", statistics.upload_connection_count);
    members.number("download_connection_count", statistics.download_connection_count);
    members.number("upload_max_speed", statistics.upload_max_speed);
    members.number("download_max_speed", statistics.download_max_speed);
    members.number("upload_total_speed", statistics.upload_total_speed);
    members.number("download_total_speed", statistics.download_total_speed);
    members.text("last_data_update_time", local_time_text(statistics.last_data_update_time));
    out += "}}";
}
