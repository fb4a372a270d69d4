#include <gtest/gtest.h>

#include <set>

#include "client/cli/exit_code.h"
#include "client/cli/names.h"
#include "client/cli/server_report.h"
#include "client/cli/terminal.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace {

using namespace transmit::cli;
using transmit::ErrorKind;

TEST(Names, OfTheServerStayInsideTheLocalFolder) {
    EXPECT_EQ(remote_name("a.txt"), "a.txt");
    EXPECT_EQ(remote_name("/holiday/b c.jpg"), "b c.jpg");
    EXPECT_EQ(remote_name("holiday\\b.jpg"), "b.jpg");
    EXPECT_EQ(remote_name("holiday/"), "holiday");
    EXPECT_EQ(remote_name("..."), "...");
    for (const char* path : {"", "/", ".", "..", "a/..", "a\\..", "../", "//..//"}) {
        EXPECT_EQ(remote_name(path), "") << path;
    }
}

TEST(Names, OfThisMachineStayOneComponentOnTheServer) {
    EXPECT_EQ(local_name("/home/ann/a.txt"), "a.txt");
    EXPECT_EQ(local_name("/home/ann/a\\b"), "");
    EXPECT_EQ(local_name("/home/.."), "");
    EXPECT_EQ(joined("folder", "name"), "folder/name");
    EXPECT_EQ(joined("folder/", "name"), "folder/name");
    EXPECT_EQ(joined("", "name"), "name");
}

TEST(Terminal, IsNotSteeredByNamesOfTheServer) {
    EXPECT_EQ(shown("a\x1B[2Jb\n\x7F"), "a\\x1B[2Jb\\x0A\\x7F");
    EXPECT_EQ(shown("\u00E4 \u4E2D"), "\u00E4 \u4E2D");
    EXPECT_EQ(shown("\u009B2J").find("\u009B"), std::string::npos);
}

TEST(ServerReport, OneBadNameSpoilsNoOtherRow) {
    const auto node = [](const std::string& name, const char* info) {
        return R"({"node_id":1,"node_ip":"192.0.2.7","node_port":5,"node_type":"upload",)"
               R"("node_speed":1.04858e+07,"node_filename":")" +
               name + R"(","node_filesize":7,"node_progress":37.5,"node_user_info":)" + info + "}";
    };
    const auto nodes = read_nodes(R"({"transmit_nodes":[)" + node("a\\\\b", "{}") + "," +
                                  node("quo\"te", "{}") + "," + node("\xFF", R"({"u":{"v":1}})") +
                                  "," + node("last", R"({"u":{"v":1}})") + "]}");
    ASSERT_EQ(nodes.size(), 4U);
    EXPECT_EQ(nodes[0].name, "a\\b");
    EXPECT_EQ(nodes[0].peer, "192.0.2.7:5");
    EXPECT_EQ(nodes[0].progress, 37.5);
    EXPECT_EQ(nodes[1].name, "(unreadable)");
    EXPECT_EQ(nodes[1].speed, 1.04858e+07);
    EXPECT_EQ(nodes[2].type, "upload");
    EXPECT_EQ(nodes[3].name, "last");
    EXPECT_TRUE(read_nodes(R"({"transmit_nodes":[]})").empty());
    EXPECT_EQ(read_nodes("{\"node_id\":garbage").size(), 1U);
    EXPECT_FALSE(read_statistics("[]"));
}

TEST(ExitCodes, TellWhatToDoNext) {
    EXPECT_EQ(exit_code(transmit::refusal(message::status_access_failed)),
              ExitCode::file_not_found);
    EXPECT_EQ(
        exit_code(transmit::refusal(message::status_access_failed), ExitCode::folder_not_found),
        ExitCode::folder_not_found);
    EXPECT_EQ(exit_code(transmit::refusal(message::status_file_in_use)), ExitCode::temporary);
    EXPECT_EQ(exit_code(transmit::refusal(message::status_write_failed)), ExitCode::other_error);
    EXPECT_EQ(exit_code({ErrorKind::no_connection, 0, ""}), ExitCode::no_connection);
    EXPECT_EQ(exit_code({ErrorKind::time_limit, 0, ""}), ExitCode::time_limit);
}

TEST(StatusTexts, EveryStatusHasItsOwnSentenceAndANextStep) {
    std::set<std::string_view> meanings;
    for (std::uint16_t status = 3; status <= message::status_decrypt_failed; ++status) {
        if (status != 5) {
            const auto text = transmit::status_text(status);
            EXPECT_TRUE(meanings.insert(text.meaning).second) << status;
            EXPECT_FALSE(text.next_step.empty()) << status;
        }
    }
}

}  // namespace
