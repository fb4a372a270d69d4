#include "kestin_net/detail/timer.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

namespace Kestin::Net::detail {

// On Linux the steady clock is CLOCK_MONOTONIC, so its times are the timer's.
bool Timer::open(Poller& poller, EventHandler& handler) {
    poller_ = &poller;
    handler_ = &handler;
    descriptor_ = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return descriptor_.is_open() && poller.add(descriptor_.number(), EPOLLIN, handler);
}

void Timer::set(Clock::time_point when) {
    using std::chrono::duration_cast;
    const auto since_start = when.time_since_epoch();
    const auto seconds = duration_cast<std::chrono::seconds>(since_start);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec =
        duration_cast<std::chrono::nanoseconds>(since_start - seconds).count();
    ::timerfd_settime(descriptor_.number(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

void Timer::drain() {
    std::uint64_t expirations = 0;
    [[maybe_unused]] const auto size =
        ::read(descriptor_.number(), &expirations, sizeof expirations);
}

void Timer::arm() {
    poller_->arm(descriptor_.number(), EPOLLIN, *handler_);
}

}  // namespace Kestin::Net::detail
