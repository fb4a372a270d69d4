#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/running_server.h"
#include "tests/support/temporary_folder.h"

// The program `transmit` as people and scripts use it.
namespace {

using support::ChildProcess;
using support::exited_with;

using Words = std::vector<std::string>;

struct Outcome {
    int code = -1;
    std::string output;  // of both standard streams
};

constexpr auto in_terminal = ChildProcess::Stdio::terminal;

class ClientProgram : public testing::Test {
  protected:
    ClientProgram() {
        write_settings("server = 127.0.0.1:" + std::to_string(server.transmit_port()) + "\n");
        support::write_file(here("report.pdf"), report);
    }

    void TearDown() override { EXPECT_EQ(server.stop(), exited_with(0)); }

    void write_settings(const std::string& text) const {
        support::write_file(folder.path() + "transmit/config.ini", text);
    }
    std::string here(const std::string& name) const { return folder.path() + "here/" + name; }

    // A line of shell in the folder `here`.
    ChildProcess start(const std::string& line,
                       ChildProcess::Stdio stdio = ChildProcess::Stdio::pipes) const {
        return ChildProcess("/bin/sh",
                            {"sh", "-c",
                             "export TERM=xterm XDG_CONFIG_HOME=" + folder.path() +
                                 " PATH=" TRANSMIT_DIST ":$PATH; unset NO_COLOR; " + line},
                            here(""), stdio);
    }

    Outcome run(const std::string& line) const {
        ChildProcess program = start(line);
        program.close_input();
        const auto status = program.await_exit();
        return {status.code, program.output()};
    }

    const std::string report = support::random_bytes(300'000, 1);
    support::TemporaryFolder folder;
    support::RunningServer server;
};

TEST_F(ClientProgram, MovesFilesAndTreesAndKnowsThemAgain) {
    support::write_file(here("photos/a b/1.jpg"), "one");
    support::write_file(here("photos/2.jpg"), "two");
    EXPECT_EQ(run("transmit put -q report.pdf /docs/ 2>&1").output, "");
    EXPECT_EQ(run("transmit --json put -r photos /backup").code, 0);
    EXPECT_EQ(run("transmit ls -R").output,
              "/backup/\n/docs/\n/backup/2.jpg\n/backup/a b/\n/backup/a b/1.jpg\n"
              "/docs/report.pdf\n");
    EXPECT_NE(run("transmit put -r photos /backup 2>&1").output.find("2 there already"),
              std::string::npos);
    EXPECT_EQ(run("transmit put report.pdf /docs/new -n").output, "report.pdf -> /docs/new\n");
    EXPECT_EQ(run("transmit put photos/2.jpg /docs -n").output, "photos/2.jpg -> /docs/2.jpg\n");
    EXPECT_EQ(run("transmit get -r /backup got").code, 0);
    EXPECT_EQ(support::read_file(here("got/a b/1.jpg")), "one");
    EXPECT_EQ(run("transmit get /docs/report.pdf got").code, 0);
    EXPECT_EQ(support::read_file(here("got/report.pdf")), report);
    EXPECT_EQ(run("echo piped | transmit put - /docs/piped && transmit get /docs/piped -").output,
              "piped\n");
    EXPECT_EQ(run("transmit mv /docs/piped /backup/ && transmit ls /backup").output,
              "2.jpg\na b/\npiped\n");
    EXPECT_EQ(run("transmit rm /backup/piped && transmit rm -r /backup && transmit ls").output,
              "docs/\n");
}

TEST_F(ClientProgram, EndsWithACodeAndSaysWhatToDo) {
    struct Case {
        const char* line;
        int code;
        const char* says;
    };
    const std::string nobody = "127.0.0.1:" + std::to_string(support::free_port()) + "/1/";
    const std::string ask_nobody = "transmit ls " + nobody;
    const std::string send_nobody = "transmit put report.pdf " + nobody;
    for (const Case& one : {
             Case{"transmit", 2, "which command?"},
             Case{"transmit send", 2, "send is no command"},
             Case{"transmit put --sneed", 2, "transmit put --help"},
             Case{"transmit put -j 0 report.pdf", 2, "--jobs"},
             Case{"transmit ls docs", 2, "a path on the server begins with /"},
             Case{"transmit stat '/a\\b'", 2, "separator"},
             Case{"transmit put - /", 2, "needs the name"},
             Case{"transmit ls /none", 3, "the path doesn't exist"},
             Case{"transmit get /none", 4, "the path doesn't exist"},
             Case{"transmit put none /", 4, "none can't be read: No such file"},
             Case{"transmit rm /none", 4, "the path doesn't exist"},
             Case{"transmit put report.pdf none /", 6, "none can't be read"},
             Case{"transmit put . /", 1, "-r sends folders"},
             Case{"transmit put report.pdf ./report.pdf /", 6, "goes to the same place"},
             Case{"transmit ls --storage 9", 1,
                  "the server has no storage 9. \"transmit storages\""},
             Case{"transmit ls --storage nowhere", 1, "no storage named nowhere"},
             Case{"transmit help send", 2, "send is no command"},
             Case{"transmit help ls", 0, "Usage: transmit ls"},
             Case{"transmit ls --server '[::ffff:127.0.0.1]:1'", 7, "Connection refused"},
             Case{"transmit put report.pdf /docs/; transmit get /docs", 1,
                  "get -r fetches folders"},
             Case{"transmit ls --json docs 2>/dev/null", 2, R"("code":2)"},
             Case{"transmit get --json /none 2>/dev/null", 4, R"("code":4)"},
             Case{"transmit top --json --once --command-port 1 2>/dev/null", 7, R"("code":7)"},
             Case{"mkdir -p \"$(printf 'tree/\\377')\" && transmit put -r tree /tree && "
                  "transmit ls -R --json /tree 2>/dev/null",
                  6, R"("code":3)"},
             Case{"mkdir -p full/sub some elsewhere && ln -s ../elsewhere some/sub && "
                  "transmit put -r full /full && transmit get -r /full some",
                  1, "transmit: some/sub is a symbolic link"},
             Case{ask_nobody.c_str(), 7, "Connection refused. See that the server runs"},
             Case{send_nobody.c_str(), 7, "Connection refused. See that the server runs"},
         }) {
        const Outcome outcome = run(std::string(one.line) + " 2>&1");
        EXPECT_EQ(outcome.code, one.code) << one.line << ": " << outcome.output;
        EXPECT_NE(outcome.output.find(one.says), std::string::npos)
            << one.line << ": " << outcome.output;
    }
}

// The parser of the command line gives some of them a meaning.
TEST_F(ClientProgram, TakesEveryNameLiterally) {
    const Words names{"[c]", "[a,b]", "c",  "a",      "b",  "{}",
                      "%%",  "[]",    "ls", "--json", "=x", "\x01x"};
    std::string words;
    for (const std::string& name : names) {
        support::write_file(here("names/" + name), "this is " + name);
        words += " '" + name + "'";
    }
    EXPECT_EQ(run("cd names && transmit put -q --" + words + " /n/").code, 0);
    EXPECT_EQ(run("cd names && for name in" + words +
                  "; do transmit put -q -- \"$name\" \"/one/$name\" || exit; done")
                  .code,
              0);
    for (const std::string& name : names) {
        for (const char* place : {"n/", "one/"}) {
            EXPECT_EQ(support::read_file(server.storage_folder() + place + name),
                      "this is " + name);
        }
    }
}

TEST_F(ClientProgram, MarksUploadsThatAreNotDoneAndFetchesThemByNameOnly) {
    for (const char* name : {"new.tcp", "old", "old.tcp", "other~"}) {
        support::write_file(server.storage_folder() + "d/" + name, name);
    }
    EXPECT_EQ(run("transmit ls /d").output, "new.tcp  (unfinished upload)\nold\nold.tcp\nother~\n");
    EXPECT_EQ(run("transmit ls --suffix '~' /d").output,
              "new.tcp\nold\nold.tcp\nother~  (unfinished upload)\n");
    const Outcome outcome = run("transmit get -r /d got 2>&1");
    EXPECT_EQ(outcome.code, 6) << outcome.output;
    EXPECT_NE(outcome.output.find("/d/new.tcp: this looks like an upload"), std::string::npos);
    EXPECT_EQ(run("ls got").output, "old\nold.tcp\nother~\n");
    EXPECT_EQ(run("transmit get -q /d/new.tcp got/ && cat got/new.tcp").output, "new.tcp");
    EXPECT_EQ(run("transmit get -qr --suffix '' /d all").code, 0);
}

TEST_F(ClientProgram, ItsTimeLimitHoldsWhateverMovesOrWaits) {
    support::write_file(here("big"), support::random_bytes(30'000'000, 2));
    ASSERT_EQ(run("transmit put -q big /").code, 0);
    ASSERT_EQ(::mkfifo(here("pipe").c_str(), 0600), 0);
    for (const char* line : {"transmit get -q --max-time 1 /big - >pipe",
                             "transmit get -q --max-time 1 --limit-rate 1M /big - >/dev/null",
                             "transmit put -q --max-time 1 - /x <pipe"}) {
        EXPECT_EQ(run("exec 3<>pipe; " + std::string(line)).code, 10) << line;
    }
    server.process().send_signal(SIGSTOP);
    EXPECT_EQ(run("transmit get -q --max-time 1 -r / x").code, 10);
    server.process().send_signal(SIGCONT);
}

TEST_F(ClientProgram, AwaitsAServerThatIsNotUpYetIfAsked) {
    const std::string port = std::to_string(support::free_port());
    ChildProcess program =
        start("exec transmit put --retry-for 60 --progress line report.pdf 127.0.0.1:" + port +
              "/1/ 2>&1");
    EXPECT_TRUE(program.await_output("Connection refused"));
    program.send_signal(SIGINT);
    EXPECT_EQ(program.await_exit(), exited_with(130));
}

TEST_F(ClientProgram, AnInterruptEndsItsWaitForThePipesReader) {
    ASSERT_EQ(run("transmit put -q report.pdf /docs/").code, 0);
    ASSERT_EQ(::mkfifo(here("pipe").c_str(), 0600), 0);
    const int reader = ::open(here("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ChildProcess program = start("exec transmit get -q /docs/report.pdf - >pipe");
    const int room = ::fcntl(reader, F_GETPIPE_SZ);
    for (int waiting = 0; waiting < room / 2;) {
        ASSERT_EQ(::ioctl(reader, FIONREAD, &waiting), 0);
        std::this_thread::yield();
    }
    program.send_signal(SIGINT);
    EXPECT_EQ(program.await_exit(), exited_with(130));
    ::close(reader);
}

TEST_F(ClientProgram, TakesDefaultsFromItsSettings) {
    write_settings("server = 127.0.0.1:1\nstorage = 9\nverify = true\n");
    const std::string port = std::to_string(server.transmit_port());
    EXPECT_EQ(run("transmit ls").code, 7);
    EXPECT_EQ(run("transmit ls --server :" + port).code, 1);
    EXPECT_EQ(run("transmit --server :" + port + " ls --storage 1").code, 0);
    EXPECT_EQ(run("transmit put report.pdf 127.0.0.1:" + port + "/1/docs/").code, 0);
    write_settings("sever = 127.0.0.1\n");
    const Outcome outcome = run("transmit ls 2>&1");
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.output.find("sever is the name of no option"), std::string::npos);
}

TEST_F(ClientProgram, WritesJsonAloneOnItsStandardOutput) {
    const Outcome outcome =
        run("transmit put --json --progress line report.pdf none /docs/; transmit ls --json /docs; "
            "transmit stat --json /docs; transmit storages --json; transmit nodes --json; "
            "transmit rm --json /docs/report.pdf");
    std::vector<std::string> kinds;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        const auto object = nlohmann::json::parse(line, nullptr, false);
        ASSERT_TRUE(object.is_object()) << line;
        kinds.push_back(object.value("event", object.begin().key()));
    }
    std::sort(kinds.begin(), kinds.begin() + 2);
    EXPECT_EQ(kinds,
              (Words{"done", "failed", "summary", "path", "path", "id", "nodes", "removed"}));
}

TEST_F(ClientProgram, InAPipePrintsWholeLines) {
    for (const char* line : {"transmit -v put report.pdf /a 2>&1 >/dev/null",
                             "transmit put --progress bar report.pdf /b 2>&1"}) {
        const Outcome outcome = run(line);
        EXPECT_EQ(outcome.output.find_first_of("\r\033"), std::string::npos) << outcome.output;
        EXPECT_NE(outcome.output.find("transmit: 1 file sent, 293.0 KiB in "), std::string::npos)
            << outcome.output;
        EXPECT_TRUE(outcome.output.ends_with("/s\n")) << outcome.output;
    }
}

// A server that has stopped takes connections and answers nothing.
TEST_F(ClientProgram, ShowsBarsOnATerminalAndGoesOnAfterAnInterrupt) {
    server.process().send_signal(SIGSTOP);
    ChildProcess program = start("exec transmit put report.pdf /docs/", in_terminal);
    EXPECT_TRUE(program.await_output("report.pdf")) << program.output();
    EXPECT_TRUE(program.await_output("[>"));
    program.resize(50);
    program.clear_output();
    EXPECT_TRUE(program.await_output("0 %       0 B/s\033[K"));
    program.send_signal(SIGUSR1);
    EXPECT_TRUE(program.await_output("transmit: report.pdf, 0 % of 293.0 KiB"));
    program.write_input("\x03");
    EXPECT_TRUE(program.await_output("This goes on: transmit put report.pdf /docs/"))
        << program.output();
    EXPECT_EQ(program.await_exit(), exited_with(130));
    ChildProcess other = start("exec transmit put report.pdf /docs/", in_terminal);
    EXPECT_TRUE(other.await_output("report.pdf"));
    other.send_signal(SIGTERM);
    EXPECT_EQ(other.await_exit(), exited_with(143));
    server.process().send_signal(SIGCONT);
    EXPECT_EQ(run("transmit put report.pdf /docs/").code, 0);
    EXPECT_EQ(support::read_file(server.storage_folder() + "docs/report.pdf"), report);
}

TEST_F(ClientProgram, AsksBeforeItDeletes) {
    EXPECT_EQ(run("transmit put report.pdf /docs/").code, 0);
    for (const bool agreed : {false, true}) {
        ChildProcess program = start("exec transmit rm -r /docs", in_terminal);
        EXPECT_TRUE(program.await_output("Delete the folder /docs with all it holds? [y/N] "));
        program.write_input(agreed ? "y\n" : "\n");
        EXPECT_EQ(program.await_exit(), exited_with(0));
        EXPECT_EQ(run("transmit stat /docs").code, agreed ? 4 : 0);
    }
}

}  // namespace
