#include "src/command_line/documents.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "src/command_line/command_line_base.h"
#include "src/command_line/command_line_parser.h"
#include "src/shared/fixed_text.h"

namespace {

NodeRecord upload() {
    NodeRecord record;
    record.node_id = 2458713423872;
    fill_text(record.node_ip, "192.0.2.7");
    record.node_port = 52114;
    record.node_type = NodeType::upload;
    record.node_speed = 10485760;
    fill_text(record.node_filename, "a\\b.bin");
    record.node_filesize = 1073741824;
    record.node_progress = 37.5;
    fill_text(record.node_user_info, R"({"user":"ann"})");
    return record;
}

NodeRecord idle() {
    NodeRecord record;
    record.node_id = 2458713427968;
    fill_text(record.node_ip, "192.0.2.9");
    record.node_port = 52120;
    fill_text(record.node_user_info, "{}");
    return record;
}

std::string list_of(const std::list<NodeRecord>& records) {
    std::string document;
    make_transmit_list_document(records, document);
    return document;
}

std::string speed_text(double speed) {
    NodeRecord record;
    record.node_speed = speed;
    std::string document;
    make_node_document(record, document);
    const auto begin = document.find("node_speed\":") + 12;
    return document.substr(begin, document.find(',', begin) - begin);
}

// A command with one option, for the scheme that the server's own commands don't use.
class OptionCommand : public CommandLineBase {
  public:
    OptionCommand() {
        EXPECT_TRUE(add_option("format"));
        EXPECT_FALSE(add_option("format"));
    }
    void release() override { reset(); }
    std::string format() const { return get_option("format")->value; }
    bool has(const std::string& name) const { return get_option(name) != nullptr; }

  protected:
    bool do_execute() override { return true; }
};

std::string error(const std::string& reason) {
    return "{\"error\":\"" + reason + "\"}";
}

std::string command_line_of(const std::string& text) {
    std::string command_line = "what stood there before";
    make_command_line(text.data(), text.size(), command_line);
    return command_line;
}

}  // namespace

TEST(Documents, TheListHasItsExactBytes) {
    EXPECT_EQ(list_of({}), R"({"transmit_nodes":[]})");
    EXPECT_EQ(
        list_of({upload(), idle()}),
        R"({"transmit_nodes":[{"node_id":2458713423872,"node_ip":"192.0.2.7","node_port":52114,)"
        R"("node_type":"upload","node_speed":1.04858e+07,"node_filename":"a\\b.bin",)"
        R"("node_filesize":1073741824,"node_progress":37.5,"node_user_info":{"user":"ann"}},)"
        R"({"node_id":2458713427968,"node_ip":"192.0.2.9","node_port":52120,)"
        R"("node_type":"message","node_speed":0,"node_filename":"","node_filesize":0,)"
        R"("node_progress":0,"node_user_info":{}}]})");
}

TEST(Documents, TheStatisticsHaveTheirExactBytes) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    TransmitStatistics statistics;
    statistics.message_connection_count = 1;
    statistics.upload_connection_count = 2;
    statistics.download_connection_count = 3;
    statistics.upload_max_speed = 10485760;
    statistics.download_max_speed = 0.5;
    statistics.upload_total_speed = 20971520;
    statistics.download_total_speed = 100;
    statistics.last_data_update_time = 1709634153;
    std::string document = "what stood there before";
    make_transmit_statistics_document(statistics, document);
    EXPECT_EQ(document, R"({"transmit_statistics":{"message_connection_count":1,)"
                        R"("upload_connection_count":2,"download_connection_count":3,)"
                        R"("upload_max_speed":1.04858e+07,"download_max_speed":0.5,)"
                        R"("upload_total_speed":2.09715e+07,"download_total_speed":100,)"
                        R"("last_data_update_time":"2024-03-05 10:22:33"}})");
}

TEST(Documents, FloatsHaveSixDigitsAtMost) {
    const std::pair<double, const char*> speeds[] = {
        {0, "0"},           {0.5, "0.5"},       {100.0 / 3, "33.3333"},   {100, "100"},
        {999999, "999999"}, {1000000, "1e+06"}, {1234567, "1.23457e+06"}, {0.0001, "0.0001"},
        {0.00001, "1e-05"},
    };
    for (const auto& [speed, text] : speeds) {
        EXPECT_EQ(speed_text(speed), text);
    }
}

TEST(Documents, OnlyBackslashesAreEscaped) {
    NodeRecord record = upload();
    fill_text(record.node_filename, "\\\\\"\n\xFF");
    EXPECT_NE(list_of({record}).find("\"node_filename\":\"\\\\\\\\\"\n\xFF\""), std::string::npos);
}

TEST(Documents, AnyOtherTypeIsAMessageNode) {
    EXPECT_STREQ(node_type_text(NodeType::download), "download");
    EXPECT_STREQ(node_type_text(static_cast<NodeType>(3)), "message");
}

TEST(CommandLine, IsMadeOfAUrlsText) {
    EXPECT_EQ(command_line_of("transmit_list?a=1&b"), "transmit_list|a=1|b");
    EXPECT_EQ(command_line_of(" \t\v\r\n\fa?b \f"), "a|b");
    EXPECT_EQ(command_line_of("a%3Fb"), "a%3Fb");
    EXPECT_EQ(command_line_of(""), "");
}

TEST(CommandLine, AnOptionTakesWhatStandsBehindTheFirstEqualsSign) {
    OptionCommand command;
    EXPECT_TRUE(command.parse_block(" format = a=b "));
    EXPECT_EQ(command.format(), "a=b");
    EXPECT_TRUE(command.parse_block("format"));
    EXPECT_EQ(command.format(), "");
    EXPECT_TRUE(command.parse_block("format=json"));
    EXPECT_FALSE(command.parse_block("other=1"));
    EXPECT_EQ(command.result(), error("invalid command option: (other)"));
    EXPECT_FALSE(command.parse_block("=1"));
    EXPECT_EQ(command.result(), error("invalid command block: (=1)"));
    EXPECT_EQ(command.status(), "412 Precondition Failed");
    command.release();
    EXPECT_EQ(command.format(), "");
    EXPECT_EQ(command.result(), "");
    EXPECT_TRUE(command.has("format"));
    EXPECT_FALSE(command.has("other"));
}

TEST(CommandLine, ARefusedLineSaysWhy) {
    const std::pair<const char*, const char*> lines[] = {
        {"transmit_list|a=1", "invalid command option: (a)"},
        {"transmit_list|=1", "invalid command block: (=1)"},
        {"transmit_statistics|a", "invalid command option: (a)"},
        {"Transmit_List", "invalid command_type (Transmit_List)"},
        {"transmit_list/", "invalid command_type (transmit_list/)"},
        {"|", "invalid command_line (|)"},
        {"", "invalid command_line ()"},
    };
    for (const auto& [line, reason] : lines) {
        CommandLineParser parser;
        EXPECT_FALSE(parser.parse(line));
        EXPECT_EQ(parser.result(), error(reason));
    }
}

TEST(CommandLine, AParserCanBeUsedAgain) {
    CommandLineParser parser;
    EXPECT_FALSE(parser.parse("transmit_list|a"));
    EXPECT_EQ(parser.status(), "412 Precondition Failed");
    EXPECT_TRUE(parser.parse("| |transmit_list| "));
    EXPECT_TRUE(parser.execute());
    EXPECT_EQ(parser.status(), "200 OK");
    EXPECT_FALSE(parser.parse("|"));
    EXPECT_EQ(parser.status(), "400 Bad Request");
    EXPECT_FALSE(parser.execute());
}
