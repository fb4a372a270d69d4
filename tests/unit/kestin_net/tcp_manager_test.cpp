#include "kestin_net/tcp_manager.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/support/raw_socket.h"
#include "tests/unit/kestin_net/scripted_service.h"

namespace kestin_net_test {
namespace {

using Kestin::Net::TcpManager;
using support::RawSocket;

class TcpManagerTest : public testing::Test {
  protected:
    TcpManagerTest() { manager_.set_service(&service_); }
    void TearDown() override { EXPECT_EQ(service_.overlaps.count(), 0U); }

    bool init(std::vector<std::uint16_t> ports, std::uint64_t thread_count = 4) {
        return manager_.init(0, thread_count, ports.data(), ports.size());
    }

    ScriptedService service_;
    TcpManager manager_;
    std::uint16_t port_ = support::free_port();
};

TEST_F(TcpManagerTest, ExitOfAnIdleManagerDoesNothing) {
    manager_.exit();
    manager_.exit();
    TcpManager without_service;
    EXPECT_FALSE(without_service.init(0, 1, &port_, 1));
    without_service.exit();
}

TEST_F(TcpManagerTest, TellsThePortThatTookAConnection) {
    service_.accept = [](Connection& connection, std::uint16_t port) {
        return send_back(connection, std::to_string(port));
    };
    const std::uint16_t other = support::free_port();
    ASSERT_TRUE(init({port_, other}));
    EXPECT_EQ(RawSocket(port_).receive(5), std::to_string(port_));
    EXPECT_EQ(RawSocket(other).receive(5), std::to_string(other));
    manager_.exit();
    EXPECT_THROW(RawSocket peer(port_), std::system_error);
}

TEST_F(TcpManagerTest, AcceptsInTheOrderOfConnecting) {
    constexpr std::size_t count = 100;
    std::vector<std::uint16_t> accepted;
    service_.accept = [&](Connection& connection, std::uint16_t) {
        std::string address;
        return connection.get_peer_address(address, accepted.emplace_back());
    };
    ASSERT_TRUE(init({port_}));
    std::deque<RawSocket> peers;
    std::vector<std::uint16_t> connected;
    while (peers.size() < count) {
        connected.push_back(peers.emplace_back(port_).local_port());
    }
    ASSERT_TRUE(service_.accepts.await(count));
    EXPECT_EQ(accepted, connected);
}

TEST_F(TcpManagerTest, PortInUseFailsAndLeavesNothingBehind) {
    ASSERT_TRUE(init({port_}));
    TcpManager second;
    second.set_service(&service_);
    const std::array<std::uint16_t, 2> ports{support::free_port(), port_};
    EXPECT_FALSE(second.init(0, 4, ports.data(), ports.size()));
    EXPECT_EQ(second.failure(), "port " + std::to_string(port_) + ": Address already in use");
    EXPECT_THROW(RawSocket peer(ports[0]), std::system_error);
    EXPECT_TRUE(second.init(0, 4, ports.data(), 1));
    EXPECT_EQ(second.failure(), "");
    RawSocket peer(ports[0]);
    EXPECT_TRUE(service_.accepts.await(1));
}

TEST_F(TcpManagerTest, PortThatStandsTwiceIsListenedOnOnce) {
    ASSERT_TRUE(init({port_, port_}));
    RawSocket peer(port_);
    EXPECT_TRUE(service_.accepts.await(1));
    manager_.exit();
    EXPECT_EQ(service_.accepts.count(), 1U);
}

TEST_F(TcpManagerTest, StartsAgainOnTheSamePortAfterExit) {
    service_.recv = echo;
    for (std::uint64_t round = 1; round <= 2; ++round) {
        ASSERT_TRUE(init({port_}));
        EXPECT_FALSE(init({port_})) << "runs already";
        RawSocket peer(port_);
        peer.send("x");
        EXPECT_EQ(peer.receive(1), "x");
        manager_.exit();
        EXPECT_TRUE(peer.await_close());
        EXPECT_EQ(service_.closes.count(), round);
    }
}

TEST_F(TcpManagerTest, ExitWaitsForRunningCallbacksAndClosesEveryConnection) {
    constexpr std::uint64_t connections = 60;
    std::promise<void> gate;
    std::atomic<bool> exited = false;
    std::atomic<int> late = 0;
    service_.recv = [&, open = gate.get_future().share()](Connection& connection) {
        open.wait();
        late += exited ? 1 : 0;
        return echo(connection);
    };
    service_.close = [&](Connection&) {
        late += exited ? 1 : 0;
    };
    ASSERT_TRUE(init({port_}));
    std::vector<std::unique_ptr<RawSocket>> peers;
    while (peers.size() < connections) {
        peers.push_back(std::make_unique<RawSocket>(port_));
    }
    ASSERT_TRUE(service_.accepts.await(connections));
    for (std::size_t busy = 0; busy < 3; ++busy) {
        peers[busy]->send("x");
    }
    ASSERT_TRUE(service_.recvs.await(3));
    std::thread stopping([&] {
        manager_.exit();
        exited = true;
    });
    EXPECT_FALSE(exited);
    gate.set_value();
    stopping.join();
    EXPECT_EQ(service_.closes.count(), connections);
    for (const auto& peer : peers) {
        peer->send("y");
        EXPECT_TRUE(peer->await_close());
    }
    EXPECT_EQ(late, 0);
}

// Lowers the process's descriptor limit so that so many more can be opened.
class FewDescriptors {
  public:
    explicit FewDescriptors(rlim_t count) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowest_free = dup(0);
        close(lowest_free);
        rlimit few = before_;
        few.rlim_cur = static_cast<rlim_t>(lowest_free) + count;
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

  private:
    rlimit before_{};
};

TEST_F(TcpManagerTest, PortThatHasUsedUpItsDescriptorsWaitsAtNoCostAndTheOtherGoesOn) {
    constexpr std::uint64_t descriptors = 160;
    constexpr std::uint64_t most_of_the_other_port = descriptors / 8;
    const FewDescriptors few(descriptors);
    service_.recv = echo;
    const std::uint16_t other = support::free_port();
    ASSERT_TRUE(init({port_, other}));
    std::deque<RawSocket> silent;
    while (silent.size() < 2 * most_of_the_other_port) {
        silent.emplace_back(other);
    }
    ASSERT_TRUE(service_.accepts.await(most_of_the_other_port / 2));
    EXPECT_TRUE(comes_to_rest());
    const std::uint64_t accepted = service_.accepts.count();
    EXPECT_LE(accepted, most_of_the_other_port);

    RawSocket peer(port_);
    peer.send("x");
    EXPECT_EQ(peer.receive(1), "x");
    silent.pop_front();
    EXPECT_TRUE(service_.accepts.await(accepted + 2));
}

}  // namespace
}  // namespace kestin_net_test
