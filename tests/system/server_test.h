#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/support/running_server.h"
#include "tests/system/peer.h"

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

    support::RunningServer server;
    Peer peer;
};
