#include "kestin_net/detail/wake_timer.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

namespace Kestin::Net::detail {

// On Linux the steady clock is CLOCK_MONOTONIC, so that its times are the timer's.
bool WakeTimer::open(Poller& poller, EventHandler& handler) {
    timer_ = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return timer_.is_open() && poller.add(timer_.number(), EPOLLIN, handler);
}

void WakeTimer::wake_by(Clock::time_point when) {
    const MutexGuard guard(mutex_);
    if (when < next_) {
        set(when);
    }
}

void WakeTimer::begin_tick() {
    const MutexGuard guard(mutex_);
    std::uint64_t expirations = 0;
    [[maybe_unused]] const auto size = ::read(timer_.number(), &expirations, sizeof expirations);
    next_ = Clock::time_point::max();
}

void WakeTimer::end_tick(Poller& poller, EventHandler& handler) {
    poller.arm(timer_.number(), EPOLLIN, handler);
}

void WakeTimer::set(Clock::time_point when) {
    using std::chrono::duration_cast;
    const auto since_start = when.time_since_epoch();
    const auto seconds = duration_cast<std::chrono::seconds>(since_start);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec =
        duration_cast<std::chrono::nanoseconds>(since_start - seconds).count();
    ::timerfd_settime(timer_.number(), TFD_TIMER_ABSTIME, &setting, nullptr);
    next_ = when;
}

}  // namespace Kestin::Net::detail
