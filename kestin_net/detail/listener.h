#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/environment.h"
#include "kestin_net/detail/event_handler.h"

namespace Kestin::Net::detail {

// One listening socket on all local IPv4 addresses. It makes connections of what comes, and rests
// for a moment when its lane has no place left or the system no descriptors or memory: what waits
// in the backlog stays there, and the connections that stand go on. The run log gets the reason, at
// most once a minute.
class Listener final : public EventHandler {
  public:
    // `lane` is that of the connections; the listener itself is served by that of other ports.
    Listener(Environment& environment, Lane& lane, std::uint16_t port)
        : environment_(environment), lane_(lane), port_(port) {}

    std::uint16_t port() const { return port_; }

    // On false errno says why the port can't be had.
    bool open();

    // Begins to accept.
    bool start();

    void handle_events(std::uint32_t events) override;

    // The port refuses connections from now on.
    void close();

    // Accepts again, if the listener rests. Callable from every thread.
    void wake();

  private:
    enum class Accepted { connection, nothing, no_resources };

    Accepted accept_one();
    Accepted adopt(Descriptor socket, const sockaddr_in& peer);
    void arm();
    void rest();

    std::uint64_t places() const;
    bool has_place();
    void tell_rest(const char* reason);
    Poller& poller() { return environment_.lanes.other_ports.workers.poller(); }

    Environment& environment_;
    Lane& lane_;
    const std::uint16_t port_;
    Descriptor socket_;
    std::atomic<bool> rests_{false};
    Clock::time_point last_told_ = Clock::time_point::min();
};

}  // namespace Kestin::Net::detail
