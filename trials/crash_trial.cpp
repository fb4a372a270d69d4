#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/system/measure.h"
#include "tests/system/process_figures.h"
#include "tests/system/server_test.h"

namespace {

using measure::mebibyte;

TEST(CrashTrial, ALargeServerLeavesItsDumpSoon) {
    support::RunningServer server;
    std::vector<std::unique_ptr<Peer>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(std::make_unique<Peer>(server.transmit_port()));
        waiting.back()->send(std::string("\0\x02\0\0\x03\xff\xff\xff", 8));
        waiting.back()->send(std::string(50 * mebibyte, 'x'));
    }
    ASSERT_TRUE(
        await([&] { return process_figures::resident_memory(server.pid()) >= 200 * mebibyte; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(server.stop_by(SIGSEGV), support::exited_with(0xAD));
    const auto time = measure::since(start);
    std::uintmax_t size = 0;
    for (const auto& dump : std::filesystem::directory_iterator(server.root().path() + "dump")) {
        size += dump.file_size();
    }
    measure::measured() << "a dump of " << size / mebibyte << " MiB in " << time.count() << " ms\n";
    EXPECT_GE(size, 200 * mebibyte);
}

}  // namespace
