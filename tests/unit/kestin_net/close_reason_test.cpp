#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "kestin_base/log.h"
#include "kestin_net/detail/event_loop.h"
#include "kestin_net/detail/receive_buffer.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/temporary_folder.h"
#include "tests/unit/kestin_net/scripted_service.h"

// What the run log says of connections that the substrate closes.
namespace kestin_net_test {
namespace {

using Kestin::Base::LogSwitch;
using Kestin::Net::detail::EventLoop;
using Kestin::Net::detail::receive_limit;
using Kestin::Net::detail::Settings;
using support::RawSocket;

constexpr std::uint64_t mebibyte = 1024UL * 1024;

// A request is one word: "wait" is not complete, "send" is followed by a number and answered by so
// many MiB, "file" is answered by a file that is too short, "end" is refused.
class CloseReasonTest : public testing::Test {
  protected:
    CloseReasonTest() {
        const std::string settings = folder_.path() + "cfg/log.ini";
        support::write_file(settings,
                            "[run]\nfile=log/run.log\nlevel=3\nsize=1\ncount=1\n"
                            "[debug]\nfile=log/debug.log\nlevel=3\nsize=1\ncount=1\n");
        EXPECT_TRUE(LogSwitch::instance().init(settings.c_str()));
        settings_.thread_count = 2;
        settings_.memory_patience = std::chrono::hours(1);
        service_.recv = [this](Connection& connection) {
            return serve(connection);
        };
        service_.accept = [this](Connection& connection, std::uint16_t) {
            connection.expect_within(10, expects_request_ ? 1 : 0);
            return true;
        };
    }
    ~CloseReasonTest() override {
        loop_.reset();
        LogSwitch::instance().exit();
    }

    void start() {
        loop_ = std::make_unique<EventLoop>(service_, settings_);
        ASSERT_TRUE(loop_->start({&port_, 1}));
    }

    // Waits until one connection more has ended. Returns the reason that the log gives for the one
    // whose peer has the port, or nothing.
    std::string reason_of_end(std::uint16_t port) {
        EXPECT_TRUE(service_.closes.await(++ends_));
        const std::string log = support::read_file(folder_.path() + "log/run.log");
        const std::string start = "connection <127.0.0.1:" + std::to_string(port) + "> closed: ";
        const std::size_t line = log.find(start);
        if (line == std::string::npos) {
            return "";
        }
        const std::size_t reason = line + start.size();
        return log.substr(reason, log.find('\n', reason) - reason);
    }
    std::string reason_after(const std::string& request) {
        RawSocket peer(port_);
        peer.send(request);
        return reason_of_end(peer.local_port());
    }

    bool serve(Connection& connection) {
        if (*connection.recv_buffer_front(1) == 'w') {
            return true;
        }
        const std::string request = take(connection, connection.recv_buffer_size());
        if (request == "file") {
            return connection.send_buffer_fill_file("head", fileno(file_.get()), 1000);
        }
        return request != "end" &&
               send_back(connection, std::string(std::stoul(request.substr(4)) * mebibyte, 'a'));
    }

    support::TemporaryFolder folder_;
    Settings settings_;
    std::atomic<bool> expects_request_ = false;
    const std::unique_ptr<FILE, int (*)(FILE*)> file_{std::tmpfile(), std::fclose};
    ScriptedService service_;
    const std::uint16_t port_ = support::free_port();
    std::unique_ptr<EventLoop> loop_;
    std::uint64_t ends_ = 0;
};

TEST_F(CloseReasonTest, WhatThePeerSentOrDidNotSend) {
    start();
    EXPECT_EQ(reason_after(std::string(receive_limit, 'w')),
              "its frame is larger than the receive buffer");
    expects_request_ = true;
    EXPECT_EQ(reason_after("wait longer"), "it sent more than a request may have");
    EXPECT_EQ(reason_after("wait"), "no request came in time");
    RawSocket peer(port_);
    const std::uint16_t port = peer.local_port();
    peer.reset();
    EXPECT_EQ(reason_of_end(port), "its socket: Connection reset by peer");
}

TEST_F(CloseReasonTest, WhatCannotBeSent) {
    settings_.memory_budget = mebibyte;
    start();
    EXPECT_EQ(reason_after("send2"), "no memory, or no room, for what it is to be sent");
    EXPECT_EQ(reason_after("file"), "the file that it is sent has become shorter");
}

TEST_F(CloseReasonTest, SilenceWhileMemoryIsShort) {
    settings_.memory_budget = 64 * mebibyte;
    settings_.memory_silence = std::chrono::milliseconds(100);
    start();
    EXPECT_EQ(reason_after("send50"), "it moved no byte while memory was short");
}

TEST_F(CloseReasonTest, MostMemoryWhileItIsShort) {
    settings_.memory_budget = 128 * mebibyte;
    start();
    EXPECT_EQ(reason_after("send118"), "it held the most memory while memory was short");
}

TEST_F(CloseReasonTest, NoneForAnEndThatPeerOrServiceChose) {
    start();
    EXPECT_EQ(reason_after("end"), "");
    RawSocket peer(port_);
    peer.finish_sending();
    EXPECT_EQ(reason_of_end(peer.local_port()), "");
}

}  // namespace
}  // namespace kestin_net_test
