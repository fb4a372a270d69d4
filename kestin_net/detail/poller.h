#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/event_handler.h"

namespace Kestin::Net::detail {

// One epoll set that many threads wait on. Every descriptor in it is armed for one event at a time,
// so that exactly one thread has it between its event and its re-arming.
class Poller {
  public:
    struct Event {
        EventHandler* handler;  // null: `stop` was called
        std::uint32_t events;
    };

    bool open();

    // Put a descriptor into the set, armed for `events`, and arm it anew. What is ready already
    // counts as an event. False: the system is out of memory or of watches.
    bool add(int descriptor, std::uint32_t events, EventHandler& handler);
    bool arm(int descriptor, std::uint32_t events, EventHandler& handler);

    // Takes a descriptor out, which has to come before its close. A thread that looks for events
    // holds each file for a moment; if that outlasts the close, the file is let go only when the
    // thread next leaves the system, which may be never, and the peer sees no end until then. None
    // looks at a descriptor that is out. One that isn't in the set is left alone.
    void remove(int descriptor);

    // Waits for one event. A thread takes no second one along, so that a handler which waits for a
    // disk holds up nobody else's. Nothing: a signal came, or the limit passed.
    std::optional<Event> wait();
    std::optional<Event> wait_for(std::chrono::milliseconds limit);

    // Ends every wait, those that begin later too.
    void stop();

  private:
    bool watch_stop_event();
    std::optional<Event> wait_milliseconds(int limit);

    Descriptor epoll_;
    Descriptor stop_event_;
};

}  // namespace Kestin::Net::detail
