#include <gtest/gtest.h>
#include <stdlib.h>

#include <set>

#include "client/cli/arguments.h"
#include "client/cli/exit_code.h"
#include "client/cli/names.h"
#include "client/cli/settings_file.h"
#include "client/cli/target.h"
#include "client/cli/text.h"
#include "client/status_text.h"
#include "src/message/status.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace transmit::cli;
using transmit::ErrorKind;

const Target defaults{{"files.example", 30100}, {2, 7, "/"}};

TEST(Targets, ArePathsOrNameTheirServerAndStorage) {
    struct Case {
        const char* text;
        transmit::Endpoint server;
        std::uint32_t storage;
        const char* path;
    };
    for (const Case& one : {Case{"/", {"files.example", 30100}, 2, "/"},
                            Case{"/docs/1/a b", {"files.example", 30100}, 2, "/docs/1/a b"},
                            Case{"10.0.0.9/3/docs/a", {"10.0.0.9", 30100}, 3, "/docs/a"},
                            Case{"other:31000/0/a/", {"other", 31000}, 0, "/a/"},
                            Case{":31000/1", {"files.example", 31000}, 1, "/"}}) {
        const auto target = parse_target(one.text, defaults);
        ASSERT_TRUE(target) << one.text;
        EXPECT_EQ(target->server, one.server) << one.text;
        EXPECT_EQ(target->path.storage_id, one.storage) << one.text;
        EXPECT_EQ(target->path.user_id, 7U) << one.text;
        EXPECT_EQ(target->path.path, one.path) << one.text;
    }
}

TEST(Targets, ThatCouldBeMistakenAreRefused) {
    for (const char* text : {"", "docs", "docs/", "docs/a.txt", "2026/11/a.txt", "host:0/1/a",
                             "host:65536/1/a", "host:x/1/a", "host/1x/a", "host//a", "./a",
                             "host/4294967296/a", "/docs\\a", "a b/1/x"}) {
        EXPECT_FALSE(parse_target(text, defaults)) << text;
    }
    EXPECT_TRUE(parse_targets({"/a", "files.example:30100/5/b"}, defaults));
    EXPECT_FALSE(parse_targets({"/a", "other/2/b"}, defaults));
}

TEST(Arguments, TheCommandMayStandBehindOptions) {
    const auto place = [](const std::vector<std::string>& arguments) {
        const auto found = first_word(arguments, [](std::string_view option) {
            return option == "-j" || option == "--jobs";
        });
        return found ? static_cast<int>(*found) : -1;
    };
    EXPECT_EQ(place({"put", "-r"}), 0);
    EXPECT_EQ(place({"-r", "--encrypt", "put"}), 2);
    EXPECT_EQ(place({"-j", "4", "--jobs", "4", "put"}), 4);
    EXPECT_EQ(place({"-j4", "--jobs=4", "-vj", "4", "put"}), 4);
    EXPECT_EQ(place({"-", "put"}), 0);
    EXPECT_EQ(place({"--", "put"}), -1);
    EXPECT_EQ(place({"-v"}), -1);
}

TEST(SettingsFile, IsFoundWhereTheDesktopSays) {
    const support::TemporaryFolder folder;
    setenv("HOME", "/home/ann", 1);
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(settings_path(), "/home/ann/.config/transmit/config.ini");
    setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(settings_path(), "/home/ann/.config/transmit/config.ini");
    setenv("XDG_CONFIG_HOME", "/etc/xdg", 1);
    EXPECT_EQ(settings_path(), "/etc/xdg/transmit/config.ini");

    const std::string path = folder.path() + "config.ini";
    EXPECT_TRUE(read_settings(path)->empty());
    support::write_file(path, "# mine\n[any]\nserver = files.example:30100 ; at work\njobs=2\n");
    const auto settings = read_settings(path);
    ASSERT_EQ(settings->size(), 2U);
    EXPECT_EQ((*settings)[0].name, "server");
    EXPECT_EQ((*settings)[0].value, "files.example:30100");
    EXPECT_EQ((*settings)[1].value, "2");
    support::write_file(path, "server\n");
    EXPECT_FALSE(read_settings(path));
}

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

TEST(Text, NamesOfTheServerSteerNoTerminal) {
    EXPECT_EQ(shown("a\x1B[2Jb\n\x7F"), "a\\x1B[2Jb\\x0A\\x7F");
    EXPECT_EQ(shown("\u00E4 \u4E2D \U0001F600"), "\u00E4 \u4E2D \U0001F600");
    EXPECT_EQ(shown("\u009B2J"), "\\xC2\\x9B2J");
    EXPECT_EQ(shown("gnp\u202Etxt"), "gnp\\xE2\\x80\\xAEtxt");
    EXPECT_EQ(shown("\xFFz\xC3"), "\\xFFz\\xC3");
    EXPECT_EQ(shown("\xC0\x9B\xED\xA0\x80"), "\\xC0\\x9B\\xED\\xA0\\x80");
}

TEST(Text, IsCutBetweenCharacters) {
    EXPECT_EQ(ending("holiday/beach.jpg", 12), "...beach.jpg");
    EXPECT_EQ(ending("beach.jpg", 9), "beach.jpg");
    EXPECT_EQ(ending("abc", 2), "..");
    EXPECT_EQ(beginning("b\u00E4ch", 2), "b\u00E4");
    EXPECT_EQ(columns(ending("\u00E4\u00F6\u00FC\u00E4\u00F6\u00FC", 5)), 5U);
}

TEST(Text, RatesAndCommandLines) {
    EXPECT_EQ(parse_rate("500k"), 500U * 1024);
    EXPECT_EQ(parse_rate("1.5M"), 3U * 512 * 1024);
    EXPECT_EQ(parse_rate("2G"), 2U << 30U);
    EXPECT_EQ(parse_rate("77"), 77U);
    for (const char* text : {"", "k", "-1", "0", "1kb", "1e3", "nan", "99999999999G", " 1"}) {
        EXPECT_FALSE(parse_rate(text)) << text;
    }
    EXPECT_EQ(shell_quoted({"transmit", "put", "-j4", "a b", "it's", "", "/docs/"}),
              "transmit put -j4 'a b' 'it'\\''s' '' /docs/");
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
