#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
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
using support::start_line;

constexpr int crash_status = 0xAD;

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
    int code = 0;
    std::string console;
    std::string error;  // without "transmit_server: ", which heads it, and the line's end
};

// Starts the program as `name`, by a shell that does `preparation` first.
Refusal start_in(const ServerRoot& root, const std::string& name,
                 const std::string& preparation = ":") {
    const std::string head = "transmit_server: ";
    const std::string errors = root.path() + "errors";
    ChildProcess server("/bin/bash", {"bash", "-c",
                                      "exec 2>'" + errors + "'; " + preparation + "; exec -a '" +
                                          name + "' '" + root.program() + "'"});
    const support::ExitStatus status = server.await_exit();
    std::string error = support::read_file(errors);
    EXPECT_TRUE(error.starts_with(head) && error.ends_with('\n')) << error;
    error = error.substr(std::min(head.size(), error.size()));
    error = error.substr(0, error.find('\n'));
    return {status.exited ? status.code : -status.signal, server.output(), error};
}

TEST(Start, SaysWhichStepFailedAndWhy) {
    const ServerRoot root;
    const Refusal nowhere = start_in(root, "/nonexistent/transmit_server");
    EXPECT_EQ(nowhere.code, 1);
    EXPECT_EQ(nowhere.console, "set current work directory failed\nget root directory failed\n");
    EXPECT_EQ(nowhere.error, "/nonexistent: No such file or directory");

    std::filesystem::create_directories(root.path() + "log/record.log");
    const Refusal no_record = start_in(root, root.program());
    EXPECT_EQ(no_record.code, 3);
    EXPECT_EQ(no_record.console, "record init failed\n");
    EXPECT_EQ(no_record.error, root.path() + "log/record.log: Is a directory");

    std::filesystem::remove_all(root.path() + "log");
    support::write_file(root.path() + "log", "no folder");
    const Refusal no_folder = start_in(root, root.program());
    EXPECT_EQ(no_folder.code, 2);
    EXPECT_EQ(no_folder.error, root.path() + "log/run.log: Not a directory");
    std::filesystem::remove(root.path() + "log");

    const std::string settings = root.path() + "cfg/log.ini";
    support::write_file(settings, "[run]\nfile = log/run.log\nlevel = loud\n");
    const Refusal faulty_log = start_in(root, root.program());
    EXPECT_EQ(faulty_log.code, 2);
    EXPECT_EQ(faulty_log.error,
              settings + ":3: level = loud: the value must be a number from 0 to 4");

    std::filesystem::remove(settings);
    const Refusal no_log = start_in(root, root.program());
    EXPECT_EQ(no_log.code, 2);
    EXPECT_EQ(no_log.console, "log init failed\n");
    EXPECT_EQ(no_log.error, settings + ": No such file or directory");
    EXPECT_FALSE(std::filesystem::exists(root.path() + "log/record.log"));
}

// Each descriptor more gets the start one step further, up to the last. The test's own descriptors
// don't count.
TEST(Start, TooFewDescriptorsFailAtAnyStepWithItsReason) {
    if (std::string(TRANSMIT_SANITIZE).starts_with("address")) {
        GTEST_SKIP() << "the sanitizer examines memory through descriptors of its own";
    }
    std::set<int> codes;
    for (int limit = 4; codes.count(5) == 0 && limit < 20; ++limit) {
        const ServerRoot root;
        const Refusal refusal = start_in(
            root, root.program(),
            "for open in /proc/self/fd/*; do open=${open##*/}; [ $open -le 2 ] || eval \"exec "
            "$open>&-\"; done; ulimit -n " +
                std::to_string(limit));
        EXPECT_TRUE(refusal.error.ends_with("Too many open files")) << refusal.error;
        codes.insert(refusal.code);
    }
    EXPECT_EQ(codes, (std::set<int>{2, 3, 4, 5}));
}

TEST(Start, TheRunLogSaysWhyTheServiceDidNotStart) {
    const ServerRoot root;
    const std::string settings = root.path() + "cfg/config.xml";
    support::write_file(settings, "<transmit_server>\n</transmit_server>");
    const Refusal refusal = start_in(root, root.program());
    EXPECT_EQ(refusal.code, 5);
    EXPECT_EQ(refusal.console, "");
    EXPECT_EQ(refusal.error, settings + ":1: <host> is missing");
    const std::string log = root.run_log();
    std::size_t at = 0;
    for (const std::string& text :
         {std::string("get_element <host> failed\n"), refusal.error + '\n',
          std::string("parse configuration failure\n"), std::string("   Error src/main main "),
          std::string("tcp transmit service init failed\n")}) {
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << " in\n" << log;
    }
}

TEST(Start, APortInUseIsNamed) {
    const RunningServer first;
    const ServerRoot root({.port = first.transmit_port()});
    const Refusal refusal = start_in(root, root.program());
    EXPECT_EQ(refusal.code, 5);
    EXPECT_EQ(refusal.error,
              "port " + std::to_string(first.transmit_port()) + ": Address already in use");
    EXPECT_NE(root.run_log().find(refusal.error), std::string::npos);
}

TEST(Start, WarnsOfWhatPutsTheMachineAtRisk) {
    const ServerRoot root({.storages = {{.id = 1}, {.id = 2}, {.id = 3}, {.id = 4}}});
    std::string list = support::read_file(root.path() + "cfg/storage.xml");
    std::filesystem::create_directory_symlink("..", root.path() + "above");
    support::write_file(root.path() + "plain", "");
    const std::string directory = "<directory>storage/public<";
    std::size_t at = list.find(directory);
    for (const std::string folder : {"storage/public", "missing", "above", "plain"}) {
        list.replace(at, directory.size(), "<directory>" + folder + "<");
        at = list.find(directory, at + 1);
    }
    support::write_file(root.path() + "cfg/storage.xml", list);
    ChildProcess server("/bin/bash", {"bash", "-c", "umask 0; exec '" + root.program() + "'"});
    ASSERT_TRUE(server.await_output(start_line));
    const std::string log = root.run_log();
    EXPECT_NE(log.find("the folder of storage 2 can not be found: " + root.path() + "missing"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("missing: No such file or directory"), std::string::npos);
    EXPECT_NE(log.find("storage 3 (" + root.path() + "above) holds the folder of the server"),
              std::string::npos);
    EXPECT_NE(log.find("the folder of storage 4 is not a folder"), std::string::npos);
    EXPECT_EQ(log.find("storage 1"), std::string::npos);
    EXPECT_NE(log.find("the umask is 0"), std::string::npos);
    EXPECT_EQ(log.find("runs as root") != std::string::npos, geteuid() == 0);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.await_exit(), exited_with(0));
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
