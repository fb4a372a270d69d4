#pragma once

#include "kestin_net/detail/mutex.h"
#include "kestin_net/detail/poller.h"
#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/timer.h"

namespace Kestin::Net::detail {

// One timer for all that waits for a time. It fires at the earliest of the times that were asked
// for and forgets the others: who is called then asks for the next. Nobody asks, nothing wakes.
class WakeTimer {
  public:
    bool open(Poller& poller, EventHandler& handler);

    // Callable from every thread.
    void wake_by(Clock::time_point when);

    // The handler's frame: `begin_tick` before it looks at what waits, `end_tick` after it.
    void begin_tick();
    void end_tick() { timer_.arm(); }

  private:
    Timer timer_;
    Mutex mutex_;
    Clock::time_point next_ KESTIN_NET_GUARDED_BY(mutex_) = Clock::time_point::max();
};

}  // namespace Kestin::Net::detail
