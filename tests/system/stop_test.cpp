#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/running_server.h"
#include "tests/support/server_root.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

namespace {

using namespace std::chrono_literals;
using support::ChildProcess;
using support::ended_by;
using support::exited_with;
using support::RunningServer;
using support::ServerRoot;
using support::start_line;

// A time in which a server that isn't to stop would have stopped.
constexpr auto while_watched = 300ms;

void expect_an_answer(const ServerRoot& root) {
    support::RawSocket browser(root.command_port());
    browser.send("GET /main.html HTTP/1.1\r\n\r\n");
    EXPECT_EQ(browser.receive(12), "HTTP/1.1 200");
}

void expect_to_stay(ChildProcess& process) {
    EXPECT_THROW(process.await_exit(while_watched), std::runtime_error);
}

void expect_serving(RunningServer& server) {
    expect_to_stay(server.process());
    expect_an_answer(server.root());
}

// The program by way of a shell, which gives it other streams or limits: `way` holds "server" where
// the program stands.
ChildProcess start_by_shell(const ServerRoot& root, std::string way) {
    way.replace(way.find("server"), 6, root.program());
    return ChildProcess("/bin/bash", {"bash", "-c", way}, root.path());
}

TEST(Console, OnlyTheExactWordStops) {
    RunningServer server;
    EXPECT_EQ(server.process().output(), start_line);
    server.process().write_input("Exit\nexit \n exit\nexitexit\nexi\n\r\nexit\r\n\n");
    server.process().write_input(std::string(60'000, 'x') + "exit\n");
    expect_serving(server);
    server.process().write_input("any\nex");
    server.process().write_input("it");
    server.process().write_input("\nmore");
    EXPECT_EQ(server.process().await_exit(), exited_with(0));
    EXPECT_EQ(server.process().output(), start_line);
}

TEST(Console, TheLastLineNeedsNoEnd) {
    RunningServer server;
    server.process().write_input("any\nexit");
    server.process().close_input();
    EXPECT_EQ(server.process().await_exit(), exited_with(0));
}

TEST(Console, AClosedInputLeavesTheServerServingAtRest) {
    RunningServer server;
    server.process().write_input("half a line");
    server.process().close_input();
    expect_serving(server);
    const auto before = server.process().processor_time();
    EXPECT_THROW(server.process().await_exit(while_watched), std::runtime_error);
    EXPECT_LE(server.process().processor_time() - before, 30ms);
    EXPECT_EQ(server.stop_by(SIGTERM), exited_with(0));
}

// A descriptor 0 that is free would be given to the first file that the server opens.
TEST(Console, AnInputThatWasNeverOpenIsLikeAClosedOne) {
    const ServerRoot root;
    ChildProcess shell = start_by_shell(root, "exec server <&-");
    ASSERT_TRUE(shell.await_output(start_line));
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(shell.pid()) + "/fd/0"),
              "/dev/null");
    shell.send_signal(SIGTERM);
    EXPECT_EQ(shell.await_exit(), exited_with(0));
}

TEST(Console, ExitWorksAfterTheEndOfInputKeyOfATerminal) {
    const ServerRoot root;
    ChildProcess server(root.program(), {root.program()}, "", ChildProcess::Stdio::terminal);
    ASSERT_TRUE(server.await_output("to stop it"));
    server.write_input("ex\x04\x04it\n\x04");
    expect_to_stay(server);
    server.write_input("exit\n");
    EXPECT_EQ(server.await_exit(), exited_with(0));
}

TEST(Console, ExitWorksAfterTheFirstWriterOfAFifoHasLeft) {
    const ServerRoot root;
    const std::string fifo = root.path() + "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ChildProcess server = start_by_shell(root, "exec server <fifo");
    support::write_file(fifo, "any\nex");
    ASSERT_TRUE(server.await_output(start_line));
    expect_to_stay(server);
    const auto before = server.processor_time();
    support::write_file(fifo, "it\n");
    expect_to_stay(server);
    EXPECT_LE(server.processor_time() - before, 30ms);
    support::write_file(fifo, "exit\n");
    EXPECT_EQ(server.await_exit(), exited_with(0));
}

TEST(Console, ABackgroundJobLeavesTheTerminalToTheShellAndServes) {
    const ServerRoot root;
    ChildProcess shell("/bin/bash", {"bash", "--norc", "--noprofile", "-i"}, root.path(),
                       ChildProcess::Stdio::terminal);
    shell.write_input("stty tostop; PS1=; ./transmit_server &\n");
    ASSERT_TRUE(shell.await_output("to stop it")) << shell.output();
    for (int line = 0; line < 3; ++line) {
        shell.write_input("echo said=$((40+" + std::to_string(line) + "))\n");
        EXPECT_TRUE(shell.await_output("said=4" + std::to_string(line))) << shell.output();
        expect_an_answer(root);
    }
    shell.write_input("jobs -s; echo stopped_jobs=$(jobs -s | wc -l)\n");
    EXPECT_TRUE(shell.await_output("stopped_jobs=0")) << shell.output();
    shell.clear_output();
    shell.write_input("fg\n");
    ASSERT_TRUE(shell.await_output("transmit_server")) << shell.output();
    shell.write_input("exit\n");
    EXPECT_TRUE(await([&] {
        return root.debug_log().find("tcp transmit service exit end") != std::string::npos;
    }));
    shell.write_input("echo code=$?\n");
    EXPECT_TRUE(shell.await_output("code=0")) << shell.output();
}

TEST(Stop, TerminationIsAnOrderlyEndWithClientsConnected) {
    RunningServer server;
    const support::RawSocket idle(server.transmit_port());
    support::RawSocket halfway(server.transmit_port());
    halfway.send(std::string(1, '\0'));
    support::RawSocket browser(server.command_port());
    browser.send("GET /main.html");
    EXPECT_EQ(server.stop_by(SIGTERM), exited_with(0));
    EXPECT_TRUE(halfway.await_close());
    EXPECT_NE(server.root().debug_log().find("tcp transmit service exit end"), std::string::npos);
}

// An upload of which a part is stored. Its temporary file bears the announced time after a stop in
// good order, and the time of its last byte otherwise.
class HalfAnUpload {
  public:
    explicit HalfAnUpload(const ServerRoot& root)
        : peer_(root.transmit_port()), temporary_(root.storage_folder() + "n.tcp") {
        EXPECT_EQ(peer_.prepare({.path = "n", .size = 300000, .time = time_}).offset, 0);
        peer_.send_file_data(support::random_bytes(size_, 1));
        EXPECT_TRUE(await([&] { return support::read_file(temporary_).size() == size_; }));
    }

    bool is_stamped() const { return stored_file::time_of(temporary_) == time_; }

  private:
    static constexpr std::int64_t time_ = 1234567;
    static constexpr std::size_t size_ = 100000;
    Peer peer_;
    std::string temporary_;
};

TEST(Stop, AStopSignalStampsWhatIsUnderWay) {
    for (const int signal : {SIGTERM, SIGHUP}) {
        RunningServer server;
        const HalfAnUpload upload(server.root());
        EXPECT_EQ(server.stop_by(signal), exited_with(0));
        EXPECT_TRUE(upload.is_stamped());
    }
}

// The shell passes the signal on, and the kernel sends another when the shell ends.
TEST(Stop, AClosedTerminalIsAnOrderlyEnd) {
    for (const bool by_shell : {false, true}) {
        const ServerRoot root;
        ChildProcess terminal =
            by_shell
                ? ChildProcess("/bin/bash", {"bash", "--norc", "--noprofile", "-i"}, root.path(),
                               ChildProcess::Stdio::terminal)
                : ChildProcess(root.program(), {root.program()}, "", ChildProcess::Stdio::terminal);
        if (by_shell) {
            terminal.write_input("./transmit_server\n");
        }
        ASSERT_TRUE(terminal.await_output("to stop it"));
        const HalfAnUpload upload(root);
        terminal.hang_up();
        EXPECT_TRUE(await([&] { return upload.is_stamped(); }));
        EXPECT_TRUE(await([&] {
            return root.debug_log().find("tcp transmit service exit end") != std::string::npos;
        }));
    }
}

TEST(Stop, AHangUpThatWasIgnoredAtStartStaysIgnored) {
    const ServerRoot root;
    ChildProcess server = start_by_shell(root, "trap '' HUP; exec server");
    ASSERT_TRUE(server.await_output(start_line));
    server.send_signal(SIGHUP);
    expect_to_stay(server);
    expect_an_answer(root);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.await_exit(), exited_with(0));
}

// Holds one callback thread of the server, so that a stop has to wait for it.
class HeldCallback {
  public:
    explicit HeldCallback(pid_t server) {
        for (const auto& entry :
             std::filesystem::directory_iterator("/proc/" + std::to_string(server) + "/task")) {
            const pid_t thread = std::stoi(entry.path().filename());
            thread_ = std::max(thread_, thread != server ? thread : 0);
        }
        int status = 0;
        is_held_ = ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) == 0 &&
                   ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) == 0 &&
                   waitpid(thread_, &status, __WALL) == thread_;
    }

    bool is_held() const { return is_held_; }

    // The system keeps a traced thread that has ended, and with it the process, for its tracer.
    void await_end() const {
        int status = 0;
        waitpid(thread_, &status, __WALL);
    }

  private:
    pid_t thread_ = 0;
    bool is_held_ = false;
};

TEST(Stop, TheSecondSignalEndsTheProcessAtOnce) {
    struct Way {
        int first;
        int second;
    };
    for (const Way& way : {Way{SIGTERM, SIGTERM}, Way{SIGHUP, SIGTERM}, Way{SIGTERM, SIGHUP}}) {
        RunningServer server;
        const HeldCallback callback(server.pid());
        if (!callback.is_held()) {
            GTEST_SKIP() << "ptrace is refused";
        }
        server.process().send_signal(way.first);
        ASSERT_TRUE(await([&] {
            return server.root().debug_log().find("tcp manager exit begin") != std::string::npos;
        }));
        server.process().send_signal(way.second);
        callback.await_end();
        EXPECT_EQ(server.process().await_exit(), ended_by(way.second));
    }
}

TEST(Stop, AnInterruptEndsTheProcessAtOnce) {
    RunningServer server;
    EXPECT_EQ(server.stop_by(SIGINT), ended_by(SIGINT));
}

// Neither the line of a good start nor those of a failed one, which come before the network layer.
TEST(Signals, AnOutputThatNobodyReadsDoesNotEndTheServer) {
    const std::string with_closed_output = "exec server 3<>fifo >fifo 3<&-";
    const ServerRoot faulty;
    ASSERT_EQ(mkfifo((faulty.path() + "fifo").c_str(), 0600), 0);
    std::filesystem::remove(faulty.path() + "cfg/log.ini");
    EXPECT_EQ(start_by_shell(faulty, with_closed_output).await_exit(), exited_with(2));

    const ServerRoot root;
    ASSERT_EQ(mkfifo((root.path() + "fifo").c_str(), 0600), 0);
    ChildProcess server = start_by_shell(root, with_closed_output);
    ASSERT_TRUE(await([&] {
        return root.debug_log().find("tcp transmit service init success") != std::string::npos;
    }));
    expect_to_stay(server);
    expect_an_answer(root);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.await_exit(), exited_with(0));
}

}  // namespace
