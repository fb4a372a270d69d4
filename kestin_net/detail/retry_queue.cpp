#include "kestin_net/detail/retry_queue.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <utility>

namespace Kestin::Net::detail {

// On Linux the steady clock is CLOCK_MONOTONIC, so its times are the timer's.
bool RetryQueue::open(Poller& poller) {
    poller_ = &poller;
    timer_ = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return timer_.is_open() && poller.add(timer_.number(), EPOLLIN, *this);
}

void RetryQueue::add(Entry& entry) {
    const MutexGuard guard(mutex_);
    entry.due_ = Clock::now() + retry_interval;
    entry.next_ = nullptr;
    if (first_ == nullptr) {
        first_ = &entry;
        set_timer(entry.due_);
    } else {
        last_->next_ = &entry;
    }
    last_ = &entry;
}

// The timer is armed for the next entry before this one is called, so that another thread can take
// the next one meanwhile.
void RetryQueue::handle_events(std::uint32_t) {
    Entry* const entry = take_first();
    poller_->arm(timer_.number(), EPOLLIN, *this);
    if (entry != nullptr) {
        entry->handle_events(0);
    }
}

RetryQueue::Entry* RetryQueue::take_first() {
    const MutexGuard guard(mutex_);
    std::uint64_t expirations = 0;
    [[maybe_unused]] const auto size = ::read(timer_.number(), &expirations, sizeof expirations);
    if (first_ == nullptr) {
        return nullptr;
    }
    Entry* const entry = std::exchange(first_, first_->next_);
    if (first_ != nullptr) {
        set_timer(first_->due_);
    }
    return entry;
}

// A time that has passed makes the timer fire at once.
void RetryQueue::set_timer(Clock::time_point when) {
    using std::chrono::duration_cast;
    const auto since_start = when.time_since_epoch();
    const auto seconds = duration_cast<std::chrono::seconds>(since_start);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec =
        duration_cast<std::chrono::nanoseconds>(since_start - seconds).count();
    ::timerfd_settime(timer_.number(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace Kestin::Net::detail
