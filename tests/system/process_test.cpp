#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/running_server.h"
#include "tests/support/server_root.h"

namespace {

using namespace std::chrono_literals;
using support::ChildProcess;
using support::ended_by;
using support::exited_with;
using support::RunningServer;
using support::ServerRoot;

constexpr auto start_line = "tcp transmit service start success, input \"exit\" to stop it\n";
constexpr int crash_status = 0xAD;

// A time in which a server that isn't to stop would have stopped.
constexpr auto while_watched = 300ms;

void expect_serving(RunningServer& server) {
    EXPECT_THROW(server.process().await_exit(while_watched), std::runtime_error);
    support::RawSocket browser(server.command_port());
    browser.send("GET /main.html HTTP/1.1\r\n\r\n");
    EXPECT_EQ(browser.receive(12), "HTTP/1.1 200");
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
    ChildProcess shell("/bin/sh", {"sh", "-c", "exec " + root.program() + " <&-"});
    ASSERT_TRUE(shell.await_output(start_line));
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(shell.pid()) + "/fd/0"),
              "/dev/null");
    shell.send_signal(SIGTERM);
    EXPECT_EQ(shell.await_exit(), exited_with(0));
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

TEST(Stop, AnInterruptEndsTheProcessAtOnce) {
    RunningServer server;
    EXPECT_EQ(server.stop_by(SIGINT), ended_by(SIGINT));
}

TEST(Start, FindsItsFilesBesideTheExecutable) {
    const ServerRoot root;
    const std::filesystem::path folder = std::filesystem::path(root.path()).parent_path();
    const std::string relative = folder.filename() / "transmit_server";
    struct Way {
        std::string name;
        std::string started_from;
    };
    for (const Way& way : {Way{root.program(), "/"}, Way{relative, folder.parent_path()},
                           Way{"transmit_server", "/"}}) {
        ChildProcess server(root.program(), {way.name}, way.started_from);
        EXPECT_TRUE(server.await_output(start_line)) << way.name << " from " << way.started_from;
        server.write_input("exit\n");
        EXPECT_EQ(server.await_exit(), exited_with(0));
    }
}

struct Refusal {
    int code;
    std::string console;
};

Refusal start_in(const ServerRoot& root, const std::string& name) {
    ChildProcess server(root.program(), {name});
    const support::ExitStatus status = server.await_exit();
    return {status.exited ? status.code : -status.signal, server.output()};
}

TEST(Start, SaysWhichStepFailed) {
    const ServerRoot root;
    const Refusal nowhere = start_in(root, "/nonexistent/transmit_server");
    EXPECT_EQ(nowhere.code, 1);
    EXPECT_EQ(nowhere.console, "set current work directory failed\nget root directory failed\n");

    std::filesystem::create_directories(root.path() + "log/record.log");
    const Refusal no_record = start_in(root, root.program());
    EXPECT_EQ(no_record.code, 3);
    EXPECT_EQ(no_record.console, "record init failed\n");

    std::filesystem::remove_all(root.path() + "log");
    std::filesystem::remove(root.path() + "cfg/log.ini");
    const Refusal no_log = start_in(root, root.program());
    EXPECT_EQ(no_log.code, 2);
    EXPECT_EQ(no_log.console, "log init failed\n");
    EXPECT_FALSE(std::filesystem::exists(root.path() + "log/record.log"));
}

TEST(Start, TheRunLogSaysWhyTheServiceDidNotStart) {
    const ServerRoot root;
    support::write_file(root.path() + "cfg/config.xml", "<transmit_server></transmit_server>");
    const Refusal refusal = start_in(root, root.program());
    EXPECT_EQ(refusal.code, 5);
    EXPECT_EQ(refusal.console, "");
    const std::string log = root.run_log();
    const std::size_t reason = log.find("get_element <host> failed");
    const std::size_t end = log.find("   Error src/main main ");
    ASSERT_NE(reason, std::string::npos) << log;
    ASSERT_NE(end, std::string::npos) << log;
    EXPECT_LT(reason, end);
    EXPECT_NE(log.find("tcp transmit service init failed\n", end), std::string::npos);
}

TEST(Start, APortInUseIsRefused) {
    const RunningServer first;
    const ServerRoot root({.port = first.transmit_port()});
    EXPECT_EQ(start_in(root, root.program()).code, 5);
}

// The sanitizers have handlers of their own for what these tests provoke.
class CrashDump : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::string(TRANSMIT_SANITIZE).empty()) {
            GTEST_SKIP() << "built with sanitizers";
        }
        support::link_or_copy(CRASH_VICTIM, victim());
    }

    std::string victim() const { return folder_.path() + "crash_victim"; }

    support::ExitStatus crash(const std::vector<std::string>& how) {
        std::vector<std::string> arguments{victim()};
        arguments.insert(arguments.end(), how.begin(), how.end());
        return ChildProcess(victim(), arguments, folder_.path()).await_exit();
    }

    // The one dump of the folder; an empty path if there isn't exactly one.
    static std::string dump_in(const std::string& root) {
        std::vector<std::string> dumps;
        for (const auto& entry : std::filesystem::directory_iterator(root + "dump")) {
            dumps.push_back(entry.path());
        }
        return dumps.size() == 1 ? dumps[0] : "";
    }

    // Whether the file holds all the memory that its headers announce.
    static bool is_whole(const std::string& dump) {
        const std::string bytes = support::read_file(dump);
        Elf64_Ehdr header{};
        std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof header));
        std::vector<Elf64_Phdr> segments(header.e_phnum);
        const std::size_t headers_size = segments.size() * sizeof(Elf64_Phdr);
        if (segments.empty() || bytes.size() < header.e_phoff + headers_size) {
            return false;
        }
        std::memcpy(segments.data(), bytes.data() + header.e_phoff, headers_size);
        return segments.back().p_offset + segments.back().p_filesz <= bytes.size();
    }

    static std::string backtrace(const std::string& program, const std::string& dump) {
        return support::output_of("/usr/bin/gdb",
                                  {"gdb", "-nx", "-batch", "-ex", "bt 14", "-ex",
                                   "echo threads:\\n", "-ex", "info threads", program, dump},
                                  2min);
    }

    support::TemporaryFolder folder_;
};

TEST_F(CrashDump, ShowsTheFaultOfTheMainThread) {
    for (const std::string fault : {"null_write", "exception", "division", "illegal_instruction",
                                    "bus_error", "abort", "stack_overflow"}) {
        EXPECT_EQ(crash({fault, "main"}), exited_with(crash_status)) << fault;
        const std::string dump = dump_in(folder_.path());
        const std::string trace = backtrace(victim(), dump);
        const std::string place =
            fault == "stack_overflow" ? "overflow_stack" : "crash_by_" + fault;
        EXPECT_NE(trace.substr(0, trace.find("threads:")).find(place), std::string::npos) << trace;
        std::filesystem::remove_all(folder_.path() + "dump");
    }
}

TEST_F(CrashDump, ShowsTheFaultOfACallbackAndAllThreads) {
    for (const std::string fault : {"null_write", "abort", "exception", "stack_overflow"}) {
        EXPECT_EQ(crash({fault, "worker"}), exited_with(crash_status)) << fault;
        const std::string trace = backtrace(victim(), dump_in(folder_.path()));
        const std::string place =
            fault == "stack_overflow" ? "overflow_stack" : "crash_by_" + fault;
        const std::size_t threads = trace.find("threads:");
        EXPECT_NE(trace.substr(0, threads).find(place), std::string::npos) << trace;
        EXPECT_TRUE(std::regex_search(trace.substr(threads), std::regex("\\* 1 +Thread"))) << trace;
        EXPECT_NE(trace.find("3    Thread", threads), std::string::npos) << trace;
        std::filesystem::remove_all(folder_.path() + "dump");
    }
}

// Where tracing is refused the second thread isn't stopped and gets to its fault while the first
// still writes.
TEST_F(CrashDump, TwoThreadsThatFaultAtOnceLeaveOneWholeDump) {
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(crash({"null_write", "both", "untraced"}), exited_with(crash_status));
        ASSERT_TRUE(is_whole(dump_in(folder_.path())));
        std::filesystem::remove_all(folder_.path() + "dump");
    }
}

TEST_F(CrashDump, ShowsTheFaultWhereTracingIsRefused) {
    EXPECT_EQ(crash({"null_write", "worker", "untraced"}), exited_with(crash_status));
    const std::string trace = backtrace(victim(), dump_in(folder_.path()));
    EXPECT_NE(trace.find("crash_by_null_write"), std::string::npos) << trace;
}

TEST_F(CrashDump, WithoutADumpTheSignalEndsTheProcess) {
    support::write_file(folder_.path() + "dump", "no folder");
    EXPECT_EQ(crash({"null_write", "main"}), ended_by(SIGSEGV));
    EXPECT_EQ(crash({"abort", "worker"}), ended_by(SIGABRT));
}

TEST_F(CrashDump, OfTheServerIsItsOwnersAlone) {
    RunningServer server;
    EXPECT_EQ(server.stop_by(SIGSEGV), exited_with(crash_status));
    const std::string dump = dump_in(server.root().path());
    EXPECT_TRUE(std::regex_search(dump, std::regex("/dump/20[0-9]{12}\\.dump$"))) << dump;
    struct stat status {};
    ASSERT_EQ(stat(dump.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    // Any thread may take a signal that is sent to the process, also one that has only begun.
    const std::string frames = backtrace(server.root().program(), dump);
    EXPECT_TRUE(std::regex_search(frames, std::regex(" (main|start_thread) \\(|Poller::run")))
        << frames;
}

}  // namespace
