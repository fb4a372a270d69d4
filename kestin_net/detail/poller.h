#pragma once

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/event_handler.h"

namespace Kestin::Net::detail {

// One epoll set that many threads wait on. Every descriptor in it is armed for one event at a time,
// so that exactly one thread has it between its event and its re-arming.
class Poller {
  public:
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

    // Calls handlers, one event at a time, until `stop`. A thread takes no second event along, so
    // that a handler which waits for a disk holds up nobody else's.
    void run();

    // Makes every `run` return, those that begin later too.
    void stop();

    // How many threads wait in `run` at this moment; none any more soon after `stop`.
    std::uint64_t waiting_threads() const { return waiting_.load(std::memory_order_relaxed); }

  private:
    bool watch_stop_event();

    Descriptor epoll_;
    Descriptor stop_event_;
    std::atomic<std::uint64_t> waiting_{0};
};

}  // namespace Kestin::Net::detail
