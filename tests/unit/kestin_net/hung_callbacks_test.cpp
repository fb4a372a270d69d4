#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kestin_net/detail/event_loop.h"
#include "kestin_net/net_switch.h"
#include "kestin_net/tcp_manager.h"
#include "tests/support/raw_socket.h"
#include "tests/unit/kestin_net/scripted_service.h"

// A stop leaves threads behind on purpose when their callbacks hang.
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}

// Callbacks that hang, as on a disk that has gone.
namespace kestin_net_test {
namespace {

using Kestin::Net::NetSwitch;
using Kestin::Net::TcpManager;
using Kestin::Net::detail::EventLoop;
using Kestin::Net::detail::Lanes;
using Kestin::Net::detail::Settings;
using support::RawSocket;

constexpr std::uint64_t usual_threads = 2;

class HungCallbacksTest : public testing::Test {
  protected:
    HungCallbacksTest() {
        service_.recv = [this](Connection& connection) {
            const std::string bytes = take(connection, connection.recv_buffer_size());
            if (bytes == "hang") {
                hangs_.add();
                released_.wait();
            }
            return send_back(connection, bytes);
        };
    }
    void TearDown() override { EXPECT_EQ(service_.overlaps.count(), 0U); }

    // Connections whose callbacks hang until `release`.
    void hang(std::size_t count) {
        while (hanging_.size() < count) {
            hanging_.push_back(std::make_unique<RawSocket>(ports_[0]));
            hanging_.back()->send("hang");
        }
    }
    void release() { gate_.set_value(); }

    static bool answers(std::uint16_t port) {
        RawSocket peer(port);
        peer.send("ping");
        return peer.receive(4) == "ping";
    }

    template <typename Condition>
    static bool await(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + wait_limit;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return condition();
    }

    std::promise<void> gate_;
    std::shared_future<void> released_ = gate_.get_future().share();
    Tally hangs_;
    ScriptedService service_;
    const std::vector<std::uint16_t> ports_{support::free_port(), support::free_port()};
    std::vector<std::unique_ptr<RawSocket>> hanging_;
};

TEST_F(HungCallbacksTest, OtherThreadsAreStartedInTheirPlaceAndEndAfterwards) {
    constexpr std::size_t count = 30;
    EventLoop loop(service_, {.thread_count = usual_threads});
    ASSERT_TRUE(loop.start(ports_));
    hang(count);
    EXPECT_TRUE(hangs_.await(count));
    EXPECT_TRUE(answers(ports_[0]));
    EXPECT_GT(loop.first_port_threads(), count);
    EXPECT_LE(loop.first_port_threads(), count + usual_threads);
    release();
    EXPECT_EQ(hanging_.front()->receive(4), "hang");
    EXPECT_TRUE(await([&] { return loop.first_port_threads() == usual_threads; }));
    EXPECT_TRUE(answers(ports_[0]));
}

TEST_F(HungCallbacksTest, AcceptingAndTheOtherPortGoOnWhenNoThreadIsLeft) {
    constexpr std::size_t all_threads = usual_threads + Lanes::most_blocked;
    EventLoop loop(service_, {.thread_count = usual_threads});
    ASSERT_TRUE(loop.start(ports_));
    hang(all_threads + 20);
    EXPECT_TRUE(hangs_.await(all_threads));
    EXPECT_TRUE(service_.accepts.await(all_threads + 20));
    EXPECT_TRUE(answers(ports_[1]));
    const RawSocket newcomer(ports_[0]);
    EXPECT_TRUE(service_.accepts.await(all_threads + 22));
    EXPECT_EQ(loop.first_port_threads(), all_threads);
    EXPECT_EQ(hangs_.count(), all_threads);
    release();
    EXPECT_TRUE(hangs_.await(all_threads + 20));
}

TEST_F(HungCallbacksTest, StopClosesTheOthersAndLeavesThemBehind) {
    auto manager = std::make_unique<TcpManager>();
    manager->set_service(&service_);
    ASSERT_TRUE(manager->init(0, usual_threads, ports_.data(), ports_.size()));
    hang(1);
    ASSERT_TRUE(hangs_.await(1));
    const std::uint16_t hung_port = hanging_.front()->local_port();
    std::atomic<bool> is_hung_closed = false;
    service_.close = [&](Connection& connection) {
        std::string address;
        std::uint16_t port = 0;
        connection.get_peer_address(address, port);
        is_hung_closed = is_hung_closed || port == hung_port;
    };
    RawSocket first(ports_[0]);
    RawSocket second(ports_[1]);
    ASSERT_TRUE(service_.accepts.await(3));
    manager->exit();
    EXPECT_TRUE(first.await_close());
    EXPECT_TRUE(second.await_close());
    EXPECT_TRUE(hanging_.front()->await_close());
    EXPECT_EQ(service_.closes.count(), 2U);
    EXPECT_EQ(NetSwitch::instance().running_threads(), 1U);
    manager.reset();
    release();
    EXPECT_TRUE(await([] { return NetSwitch::instance().running_threads() == 0; }));
    EXPECT_EQ(service_.closes.count(), 2U);
    EXPECT_FALSE(is_hung_closed);
}

TEST_F(HungCallbacksTest, LoopIsDestroyedAfterTheLastCallback) {
    auto loop = std::make_unique<EventLoop>(service_, Settings{.thread_count = usual_threads});
    ASSERT_TRUE(loop->start(ports_));
    hang(1);
    ASSERT_TRUE(hangs_.await(1));
    std::thread releaser([this] {
        EXPECT_TRUE(hanging_.front()->await_close()) << "the stop gives up";
        EXPECT_EQ(NetSwitch::instance().running_threads(), 1U);
        release();
    });
    loop.reset();
    EXPECT_EQ(NetSwitch::instance().running_threads(), 0U);
    releaser.join();
}

TEST_F(HungCallbacksTest, StopDoesNotWaitForAnEndThatHangs) {
    TcpManager manager;
    manager.set_service(&service_);
    ASSERT_TRUE(manager.init(0, usual_threads, ports_.data(), ports_.size()));
    service_.close = [this](Connection&) {
        hangs_.add();
        released_.wait();
    };
    const RawSocket peer(ports_[0]);
    ASSERT_TRUE(service_.accepts.await(1));
    manager.exit();
    EXPECT_EQ(hangs_.count(), 1U);
    release();
    EXPECT_TRUE(await([] { return NetSwitch::instance().running_threads() == 0; }));
}

}  // namespace
}  // namespace kestin_net_test
