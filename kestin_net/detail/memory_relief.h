#pragma once

#include "kestin_net/detail/connection_set.h"
#include "kestin_net/detail/memory_budget.h"
#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/wake_timer.h"

namespace Kestin::Net::detail {

// Looks after the connections when the memory of all is short. Those that wait for memory become
// the favorite one after the other, which may complete its frame from the reserve. Closes the peers
// that have moved no byte for `memory_silence`, and the largest holder if the reserve is used up or
// the favorite doesn't get on. Rests while memory suffices.
class MemoryRelief {
  public:
    MemoryRelief(const MemoryBudget& budget, const Settings& settings, WakeTimer& timer)
        : budget_(budget), settings_(settings), timer_(timer) {}

    // Has the timer look at memory soon, if it is short or `is_waiting`. Callable from every
    // thread.
    void call(bool is_waiting);

    // The timer's tick; returns the time of the next one that it needs, or
    // Clock::time_point::max().
    Clock::time_point tick(ConnectionSet& connections, Clock::time_point now);

  private:
    const MemoryBudget& budget_;
    const Settings& settings_;
    WakeTimer& timer_;
    // Touched by the tick alone.
    Clock::time_point short_since_ = Clock::time_point::max();
    Clock::time_point last_relief_ = Clock::time_point::min();
};

}  // namespace Kestin::Net::detail
