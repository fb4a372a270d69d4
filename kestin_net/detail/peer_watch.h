#pragma once

#include <netinet/tcp.h>

#include <atomic>
#include <chrono>

#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/wake_timer.h"

namespace Kestin::Net::detail {

class ConnectionSet;

// What is known of a peer to which bytes were sent.
enum class PeerState {
    answered,  // it has acknowledged all of them
    awaited,   // it has not yet, or its window is closed
    gone       // it answers nothing any more
};

// Whether a peer to which bytes are under way has vanished: nothing has been heard for
// `silence_limit`, and at least two questions in a row have got no answer. Questions are the
// retransmission of data and, while the peer's window is closed, the probe of the window; a peer
// that has stopped reading still answers these, however long it pauses.
bool has_vanished(const tcp_info& info, Clock::duration silence_limit);

// Looks at the socket of one peer.
PeerState look_at_peer(int socket, Clock::duration silence_limit);

// Decides when the connections with bytes under way are looked at: every `interval` as long as
// there are any. Keepalive doesn't see their peers, because it waits until all is acknowledged.
class PeerWatch {
  public:
    PeerWatch(Clock::duration interval, WakeTimer& timer) : interval_(interval), timer_(timer) {}

    // Bytes have been sent to some peer. Callable from every thread; next to nothing on the way of
    // all data.
    void note_sent() {
        if (!is_due_.load(std::memory_order_relaxed)) {
            begin();
        }
    }

    // At each tick of the timer: looks if it is time to. Returns when to come again.
    Clock::time_point tick(ConnectionSet& connections, Clock::time_point now);

  private:
    void begin();

    const Clock::duration interval_;
    WakeTimer& timer_;
    std::atomic<bool> is_due_ = false;
    Clock::time_point earliest_{};  // of the thread that has the tick
};

}  // namespace Kestin::Net::detail
