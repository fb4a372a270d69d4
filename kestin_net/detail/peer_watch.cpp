#include "kestin_net/detail/peer_watch.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

#include "kestin_net/detail/connection_set.h"

namespace Kestin::Net::detail {
namespace {

// One lost question proves nothing.
constexpr unsigned enough_questions = 2;

}  // namespace

// The kernel sets the counts of questions back to 0 with each answer. Its times are milliseconds.
bool has_vanished(const tcp_info& info, Clock::duration silence_limit) {
    const auto silence =
        std::chrono::milliseconds(std::min(info.tcpi_last_ack_recv, info.tcpi_last_data_recv));
    const unsigned questions = unsigned{info.tcpi_retransmits} + info.tcpi_probes;
    return silence >= silence_limit && questions >= enough_questions;
}

PeerState look_at_peer(int socket, Clock::duration silence_limit) {
    int unacknowledged = 0;
    if (::ioctl(socket, SIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0) {
        return PeerState::answered;
    }
    tcp_info info{};
    socklen_t size = sizeof info;
    const bool is_known = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0;
    return is_known && has_vanished(info, silence_limit) ? PeerState::gone : PeerState::awaited;
}

Clock::time_point PeerWatch::tick(ConnectionSet& connections, Clock::time_point now) {
    if (is_due_ && now >= earliest_) {
        is_due_ = false;
        earliest_ = now + interval_;
        if (connections.check_peers()) {
            is_due_ = true;
        }
    }
    return is_due_ ? earliest_ : Clock::time_point::max();
}

void PeerWatch::begin() {
    if (!is_due_.exchange(true)) {
        timer_.wake_by(Clock::now() + interval_);
    }
}

}  // namespace Kestin::Net::detail
