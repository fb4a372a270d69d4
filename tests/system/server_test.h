#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/running_server.h"
#include "tests/system/peer.h"
#include "tests/system/process_figures.h"

// Looks again and again until the condition holds; false if it doesn't within half a minute.
template <typename Condition>
bool await(Condition holds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

// A test with a server of its own, whose storage 1 is empty, and one client connected to it. At its
// end the server has to stop in good order: a sanitizer's complaint would show in its exit code.
class ServerTest : public testing::Test {
  protected:
    explicit ServerTest(const support::ServerSettings& settings = {})
        : server(settings), peer(server.transmit_port()) {}

    void TearDown() override { EXPECT_EQ(server.stop(), support::exited_with(0)); }

    std::string in_storage(const std::string& name) const { return server.storage_folder() + name; }

    // What the server has now.
    std::uint64_t memory() { return process_figures::resident_memory(server.pid()); }
    std::size_t descriptors() { return process_figures::open_descriptors(server.pid()); }

    support::RunningServer server;
    Peer peer;
};
