#pragma once

#include <chrono>

#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/mutex.h"
#include "kestin_net/detail/poller.h"
#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/timer.h"

namespace Kestin::Net::detail {

// How long a postponed handler waits until it is called again, and how many are called in that
// time at most: beyond that number, each waits longer.
inline constexpr auto retry_interval = std::chrono::milliseconds(20);
inline constexpr int most_retries = 100;

// Handlers that asked to be called again although nothing new happens. Each is called once, after
// `retry_interval` or later (most_retries), by a thread of the poller. The queue owns none of them
// and needs no memory for them. Callable from every thread.
class RetryQueue final : private EventHandler {
  public:
    // Something that the queue can hold, in one queue and one place at a time.
    class Entry : public EventHandler {
        friend class RetryQueue;
        Clock::time_point due_;
        Entry* next_ = nullptr;
    };

    bool open(Poller& poller);

    // The entry must not be armed in a poller. After this call another thread may already have it.
    // When it is due, its handle_events is called with no events.
    void add(Entry& entry);

  private:
    void handle_events(std::uint32_t events) override;
    Entry* take_first();
    void call_first() KESTIN_NET_REQUIRES(mutex_);

    Timer timer_;
    Mutex mutex_;
    // In the order in which they are due, since all wait equally long.
    Entry* first_ KESTIN_NET_GUARDED_BY(mutex_) = nullptr;
    Entry* last_ KESTIN_NET_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace Kestin::Net::detail
