#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/environment.h"
#include "kestin_net/detail/event_handler.h"

namespace Kestin::Net::detail {

// One listening socket on all local IPv4 addresses. It makes connections of what comes, and rests
// for a moment when descriptors or memory have run out: what waits in the backlog stays there, and
// the connections that stand go on.
class Listener final : public EventHandler {
  public:
    Listener(Environment& environment, std::uint16_t port)
        : environment_(environment), port_(port) {}

    std::uint16_t port() const { return port_; }

    // On false errno says why the port can't be had.
    bool open();

    // Begins to accept.
    bool start();

    void handle_events(std::uint32_t events) override;

    // Accepts again, if the listener rests. Callable from every thread.
    void wake();

  private:
    enum class Accepted { connection, nothing, no_resources };

    Accepted accept_one();
    Accepted adopt(Descriptor socket, const sockaddr_in& peer);
    void arm();
    void rest();

    Environment& environment_;
    const std::uint16_t port_;
    Descriptor socket_;
    std::atomic<bool> rests_{false};
};

}  // namespace Kestin::Net::detail
