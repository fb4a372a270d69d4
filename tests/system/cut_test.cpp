#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/proxy.h"
#include "tests/system/client_server_test.h"

// Transfers of the client library, and of the program, through a line that breaks at random places,
// and go on: in the end the file is there byte for byte, and what had come didn't travel twice.
namespace {

using support::ChildProcess;

enum class Cut { reset, server_restart, silence, client_end, program_kill };
constexpr int kinds_of_cuts = 5;

// TRANSMIT_HEAVY_TESTS=1 makes it 300 cuts.
bool is_heavy() {
    const char* const wish = std::getenv("TRANSMIT_HEAVY_TESTS");
    return wish && wish == std::string_view("1");
}

int cut_count() {
    return is_heavy() ? 300 : 2 * kinds_of_cuts;
}

class CutTest : public ClientServerTest {
  protected:
    std::uint64_t random_between(std::uint64_t least, std::uint64_t most) {
        return std::uniform_int_distribution<std::uint64_t>(least, most)(generator);
    }

    void SetUp() override {
        target.endpoint.port = proxy.port();
        target.limits.silence = std::chrono::seconds(2);
        target.limits.cancelled = [this] {
            return client_ends.load();
        };
    }

    void cut(Cut kind) {
        switch (kind) {
            case Cut::reset:
                return proxy.cut();
            case Cut::server_restart:
                EXPECT_EQ(server.stop_by(SIGTERM), support::exited_with(0));
                server.start();
                return proxy.cut();
            case Cut::silence:
                return proxy.silence();
            case Cut::client_end:
                client_ends = true;
                return;
            case Cut::program_kill:
                return;
        }
    }

    // One file there or back, cut once; the bytes that went through more than its size.
    std::int64_t transfer_with_a_cut(bool upload, Cut kind);
    void transfer_by_library(bool upload, Cut kind);
    void transfer_by_killed_program(bool upload);
    bool await_hold(bool upload);
    bool run(bool upload) { return (upload ? put(local, "f") : get("f", local)).complete(); }

    ChildProcess start_program(bool upload) {
        std::vector<std::string> words{"env", "XDG_CONFIG_HOME=" + folder.path(),
                                       TRANSMIT_DIST "/transmit", "--json", "--server"};
        words.push_back("127.0.0.1:" + std::to_string(proxy.port()));
        if (upload) {
            words.insert(words.end(), {"put", local, "/f"});
        } else {
            words.insert(words.end(), {"get", "/f", local});
        }
        if (options.encrypted) {
            words.emplace_back("--encrypt");
        }
        return {"/usr/bin/env", words};
    }

    std::mt19937 generator{20240305};
    support::Proxy proxy{server.transmit_port(), {.bytes_per_second = 100'000'000}};
    std::uint64_t held_after = 0;
    std::atomic<bool> client_ends = false;
};

std::int64_t CutTest::transfer_with_a_cut(bool upload, Cut kind) {
    const auto size = random_between(8 << 20, 12 << 20);
    const std::string bytes = support::random_bytes(size, generator());
    stored_file::put(upload ? local : in_storage("f"), bytes, 1'000'000);
    const std::uint64_t before = proxy.to_server() + proxy.to_client();
    held_after = random_between(1 << 20, size - 1000);
    proxy.hold_after(held_after);
    if (kind == Cut::program_kill) {
        transfer_by_killed_program(upload);
    } else {
        transfer_by_library(upload, kind);
    }
    EXPECT_EQ(support::sha256_of_file(upload ? in_storage("f") : local), support::sha256(bytes));
    std::filesystem::remove(local);
    std::filesystem::remove(in_storage("f"));
    return static_cast<std::int64_t>(proxy.to_server() + proxy.to_client() - before - size);
}

// Until nothing goes through any more, and what did is stored but for the rest of a block.
bool CutTest::await_hold(bool upload) {
    constexpr std::uint64_t most_unstored = 256 << 10;
    const std::string part =
        upload ? in_storage("f.tcp") : folder.path() + work_name("local", ".part");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const auto stored = [&part] {
        std::error_code missing;
        const auto size = std::filesystem::file_size(part, missing);
        return missing ? 0 : size;
    };
    bool held = proxy.await_hold();
    while (held && stored() + most_unstored < held_after) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        held = std::chrono::steady_clock::now() < deadline;
    }
    return held;
}

void CutTest::transfer_by_library(bool upload, Cut kind) {
    bool done = false;
    std::thread client([&] { done = run(upload); });
    EXPECT_TRUE(await_hold(upload));
    cut(kind);
    client.join();
    if (client_ends.exchange(false)) {
        EXPECT_FALSE(done);
        proxy.cut();
        done = run(upload);
    }
    EXPECT_TRUE(done);
}

void CutTest::transfer_by_killed_program(bool upload) {
    ChildProcess program = start_program(upload);
    EXPECT_TRUE(await_hold(upload));
    program.send_signal(SIGKILL);
    EXPECT_EQ(program.await_exit(), support::ended_by(SIGKILL));
    proxy.cut();
    ChildProcess again = start_program(upload);
    EXPECT_EQ(again.await_exit(), support::exited_with(0));
    EXPECT_EQ(again.output().find("started_over"), std::string::npos) << again.output();
}

TEST_F(CutTest, NothingIsLostAndLittleGoesTwice) {
    std::int64_t twice = 0;
    for (int round = 0; round < cut_count(); ++round) {
        const bool upload = round % 2 == 0;
        const Cut kind = Cut(round / 2 % kinds_of_cuts);
        SCOPED_TRACE(testing::Message() << "round " << round << (upload ? ": up, " : ": down, ")
                                        << "cut " << static_cast<int>(kind));
        options.encrypted = round % 3 == 0;
        twice += transfer_with_a_cut(upload, kind);
        EXPECT_EQ(observer.starts_over, std::vector<std::string>());
        ASSERT_FALSE(HasFailure());
    }
    const std::int64_t all = static_cast<std::int64_t>(cut_count()) * (10 << 20);
    // The heads of messages, the ends of enciphered blocks and the look at what was stored count
    // too.
    EXPECT_LE(twice, all / 50);
    std::cout << cut_count()
              << " cuts: " << 100.0 * static_cast<double>(twice) / static_cast<double>(all)
              << " % more than the files\n";
}

}  // namespace
