#include <gtest/gtest.h>
#include <linux/filter.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <string>

#include "kestin_net/detail/event_loop.h"
#include "kestin_net/detail/peer_watch.h"
#include "tests/support/raw_socket.h"
#include "tests/unit/kestin_net/scripted_service.h"

// Peers that vanish while bytes are under way to them, and such as only pause.
namespace kestin_net_test {
namespace {

using Kestin::Net::detail::EventLoop;
using Kestin::Net::detail::has_vanished;
using Kestin::Net::detail::Settings;
using std::chrono::seconds;
using support::RawSocket;

// From now on the socket's system hears nothing, and so acknowledges nothing.
void deafen(const RawSocket& socket) {
    sock_filter drop_all{BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog program{.len = 1, .filter = &drop_all};
    ASSERT_EQ(
        setsockopt(socket.descriptor(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), 0);
}

class VanishedPeerTest : public testing::Test {
  protected:
    // Sends without end to whoever asks for it.
    VanishedPeerTest() {
        service_.recv = [](Connection& connection) {
            connection.set_user_data(&connection);
            return connection.recv_buffer_drop_len(connection.recv_buffer_size());
        };
        service_.send = [](Connection& connection) {
            return connection.get_user_data() == nullptr ||
                   send_back(connection, std::string(65536, 'x'));
        };
        EXPECT_TRUE(loop_.start({&port_, 1}));
    }

    static Settings impatient() {
        Settings settings;
        settings.thread_count = 2;
        settings.silence_limit = seconds(1);
        settings.peer_watch_interval = std::chrono::milliseconds(100);
        return settings;
    }

    ScriptedService service_;
    std::uint16_t port_ = support::free_port();
    EventLoop loop_{service_, impatient()};
};

TEST_F(VanishedPeerTest, DeafPeerEndsAndPausingPeerStays) {
    RawSocket pausing(port_);
    pausing.send("go");
    ASSERT_EQ(pausing.receive(10), std::string(10, 'x'));
    RawSocket stalled(port_);
    stalled.send("go");
    ASSERT_EQ(stalled.receive(10), std::string(10, 'x'));
    RawSocket running(port_);
    running.send("go");
    ASSERT_EQ(running.receive(1'000'000).size(), 1'000'000U);
    deafen(stalled);
    deafen(running);
    EXPECT_TRUE(service_.closes.await(2));
    // The probes of its window are further apart than the limit by now.
    EXPECT_EQ(pausing.receive(20'000'000).size(), 20'000'000U);
    EXPECT_EQ(service_.closes.count(), 2U);
}

TEST_F(VanishedPeerTest, PeerThatIsSilentWithNothingToAcknowledgeStays) {
    RawSocket idle(port_);
    ASSERT_TRUE(service_.accepts.await(1));
    deafen(idle);
    RawSocket vanished(port_);
    vanished.send("go");
    ASSERT_EQ(vanished.receive(10), std::string(10, 'x'));
    deafen(vanished);
    ASSERT_TRUE(service_.closes.await(1));
    EXPECT_EQ(service_.closes.count(), 1U);
}

// What the kernel tells of each, as seen with TCP_INFO.
TEST(HasVanished, NeedsSilenceAndUnansweredQuestions) {
    constexpr seconds limit(130);
    tcp_info info{};
    info.tcpi_last_data_recv = 3'600'000;
    info.tcpi_last_ack_recv = 119'000;
    info.tcpi_probes = 0;
    EXPECT_FALSE(has_vanished(info, limit)) << "pauses for an hour, answers every probe";
    info.tcpi_last_ack_recv = 131'000;
    info.tcpi_probes = 1;
    EXPECT_FALSE(has_vanished(info, limit)) << "one probe was lost";
    info.tcpi_probes = 2;
    EXPECT_TRUE(has_vanished(info, limit)) << "answers no probe";
    info.tcpi_probes = 0;
    info.tcpi_retransmits = 8;
    EXPECT_TRUE(has_vanished(info, limit)) << "acknowledges no data";
    info.tcpi_last_data_recv = 1'000;
    EXPECT_FALSE(has_vanished(info, limit)) << "still sends";
}

}  // namespace
}  // namespace kestin_net_test
