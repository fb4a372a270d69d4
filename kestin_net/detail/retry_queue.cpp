#include "kestin_net/detail/retry_queue.h"

#include <algorithm>
#include <utility>

namespace Kestin::Net::detail {

bool RetryQueue::open(Poller& poller) {
    return timer_.open(poller, *this);
}

void RetryQueue::add(Entry& entry) {
    const MutexGuard guard(mutex_);
    entry.due_ = Clock::now() + retry_interval;
    entry.next_ = nullptr;
    if (first_ == nullptr) {
        first_ = &entry;
        call_first();
    } else {
        last_->next_ = &entry;
    }
    last_ = &entry;
}

// The timer is armed for the next entry before this one is called, so that another thread can take
// the next one meanwhile.
void RetryQueue::handle_events(std::uint32_t) {
    Entry* const entry = take_first();
    timer_.arm();
    if (entry != nullptr) {
        entry->handle_events(0);
    }
}

RetryQueue::Entry* RetryQueue::take_first() {
    const MutexGuard guard(mutex_);
    timer_.drain();
    if (first_ == nullptr) {
        return nullptr;
    }
    Entry* const entry = std::exchange(first_, first_->next_);
    if (first_ != nullptr) {
        call_first();
    }
    return entry;
}

// Many entries that are due at once are called one by one, so that they leave the processor to
// those that don't wait.
void RetryQueue::call_first() {
    timer_.set(std::max(first_->due_, Clock::now() + retry_interval / most_retries));
}

}  // namespace Kestin::Net::detail
