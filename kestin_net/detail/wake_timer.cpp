#include "kestin_net/detail/wake_timer.h"

namespace Kestin::Net::detail {

bool WakeTimer::open(Poller& poller, EventHandler& handler) {
    return timer_.open(poller, handler);
}

void WakeTimer::wake_by(Clock::time_point when) {
    const MutexGuard guard(mutex_);
    if (when < next_) {
        timer_.set(when);
        next_ = when;
    }
}

void WakeTimer::begin_tick() {
    const MutexGuard guard(mutex_);
    timer_.drain();
    next_ = Clock::time_point::max();
}

}  // namespace Kestin::Net::detail
