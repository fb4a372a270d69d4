#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "kestin_net/detail/event_loop.h"
#include "tests/support/raw_socket.h"
#include "tests/unit/kestin_net/scripted_service.h"

// Callbacks that the service postpones.
namespace kestin_net_test {
namespace {

using Kestin::Net::detail::EventLoop;
using Kestin::Net::detail::Settings;
using support::RawSocket;

class PostponeTest : public testing::Test {
  protected:
    // Postpones on_recv and on_close while the gate is shut.
    PostponeTest() {
        service_.recv = [this](Connection& connection) {
            return postpones(connection) || echo(connection);
        };
        service_.close = [this](Connection& connection) {
            if (!postpones(connection)) {
                closed_.add();
            }
        };
    }

    [[nodiscard]] std::unique_ptr<EventLoop> start(std::uint64_t thread_count = 2) {
        Settings settings;
        settings.thread_count = thread_count;
        auto loop = std::make_unique<EventLoop>(service_, settings);
        EXPECT_TRUE(loop->start({&port_, 1}));
        return loop;
    }
    void TearDown() override { EXPECT_EQ(service_.overlaps.count(), 0U); }

    bool postpones(Connection& connection) {
        if (is_open_) {
            return false;
        }
        connection.postpone();
        postponed_.add();
        return true;
    }

    std::atomic<bool> is_open_ = false;
    Tally postponed_, closed_;
    ScriptedService service_;
    std::uint16_t port_ = support::free_port();
};

TEST_F(PostponeTest, BytesAreOfferedAgainAlthoughNoneCome) {
    auto loop = start();
    RawSocket peer(port_);
    peer.send("abc");
    ASSERT_TRUE(postponed_.await(3));
    is_open_ = true;
    EXPECT_EQ(peer.receive(3), "abc");
}

TEST_F(PostponeTest, NoThreadIsOccupied) {
    service_.recv = [this](Connection& connection) {
        const std::string bytes = take(connection, connection.recv_buffer_size());
        if (bytes == "ping") {
            return send_back(connection, bytes);
        }
        return postpones(connection);
    };
    auto loop = start(1);
    std::vector<std::unique_ptr<RawSocket>> waiting;
    while (waiting.size() < 50) {
        waiting.push_back(std::make_unique<RawSocket>(port_));
        waiting.back()->send("x");
    }
    ASSERT_TRUE(postponed_.await(2 * waiting.size()));
    RawSocket other(port_);
    other.send("ping");
    EXPECT_EQ(other.receive(4), "ping");
    is_open_ = true;
}

TEST_F(PostponeTest, BytesAndEndOfThePeerThatComeMeanwhileAreNotLost) {
    auto loop = start();
    RawSocket peer(port_);
    peer.send("abc");
    ASSERT_TRUE(postponed_.await(1));
    peer.send("def");
    peer.finish_sending();
    ASSERT_TRUE(postponed_.await(postponed_.count() + 2));
    is_open_ = true;
    EXPECT_EQ(peer.receive_to_end(), "abcdef");
    EXPECT_TRUE(closed_.await(1));
}

TEST_F(PostponeTest, AnswerBeforeThePostponedRequestGoesOut) {
    service_.recv = [this](Connection& connection) {
        return connection.recv_buffer_size() == 2 ? send_back(connection, take(connection, 1))
                                                  : postpones(connection) || echo(connection);
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("12");
    EXPECT_EQ(peer.receive(1), "1");
    is_open_ = true;
    EXPECT_EQ(peer.receive(1), "2");
}

TEST_F(PostponeTest, SendingGoesOnWhereItWasPostponed) {
    constexpr int pieces = 20;
    std::atomic<int> next = pieces;
    is_open_ = true;
    service_.recv = [&](Connection& connection) {
        next = 0;
        return connection.recv_buffer_drop_len(connection.recv_buffer_size());
    };
    bool postpones_next = false;
    service_.send = [&](Connection& connection) {
        postpones_next = !postpones_next;
        if (postpones_next || next == pieces) {
            connection.postpone();
            return true;
        }
        return send_back(connection, std::string(1, static_cast<char>('a' + next++)));
    };
    auto loop = start();
    RawSocket peer(port_);
    for (int round = 0; round < 2; ++round) {
        peer.send("go");
        EXPECT_EQ(peer.receive(pieces), "abcdefghijklmnopqrst") << round;
    }
}

TEST_F(PostponeTest, ConnectionLastsUntilItsEndIsNotPostponed) {
    auto loop = start();
    std::string address;
    std::atomic<std::uint16_t> port = 0;
    service_.close = [&](Connection& connection) {
        std::uint16_t peer_port = 0;
        connection.get_peer_address(address, peer_port);
        port = peer_port;
        if (!postpones(connection)) {
            closed_.add();
        }
    };
    RawSocket peer(port_);
    const std::uint16_t expected = peer.local_port();
    ASSERT_TRUE(service_.accepts.await(1));
    peer.reset();
    ASSERT_TRUE(postponed_.await(3));
    port = 0;
    is_open_ = true;
    ASSERT_TRUE(closed_.await(1));
    EXPECT_EQ(port, expected);
    loop.reset();
    EXPECT_EQ(closed_.count(), 1U);
}

TEST_F(PostponeTest, StopRepeatsAPostponedEnd) {
    auto loop = start();
    RawSocket waiting(port_);
    waiting.send("x");
    RawSocket idle(port_);
    ASSERT_TRUE(service_.accepts.await(2));
    ASSERT_TRUE(postponed_.await(1));
    std::atomic<int> left = 4;
    service_.close = [&](Connection& connection) {
        left-- > 0 ? connection.postpone() : closed_.add();
    };
    loop.reset();
    EXPECT_EQ(closed_.count(), 2U);
}

}  // namespace
}  // namespace kestin_net_test
