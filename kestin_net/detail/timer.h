#pragma once

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/poller.h"
#include "kestin_net/detail/settings.h"

namespace Kestin::Net::detail {

// A timer (timerfd_create(2)) that wakes a thread of a poller. The owner decides when it fires next
// and guards it with a lock of its own.
class Timer {
  public:
    // Arms the timer for `handler`. False: no descriptor left; errno says why.
    bool open(Poller& poller, EventHandler& handler);

    // Replaces the time at which it fires. A time that has passed makes it fire at once.
    void set(Clock::time_point when);

    // In the handler: `drain` makes the timer silent until it fires again, `arm` lets another
    // thread be called for it.
    void drain();
    void arm();

  private:
    Poller* poller_ = nullptr;
    EventHandler* handler_ = nullptr;
    Descriptor descriptor_;
};

}  // namespace Kestin::Net::detail
