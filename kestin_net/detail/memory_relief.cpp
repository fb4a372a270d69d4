#include "kestin_net/detail/memory_relief.h"

#include <algorithm>

namespace Kestin::Net::detail {
namespace {

// How soon the connections are looked at when the reserve is in use, and otherwise.
constexpr auto urgent_interval = std::chrono::milliseconds(10);
constexpr auto relief_interval = std::chrono::milliseconds(100);

}  // namespace

void MemoryRelief::call(bool is_waiting) {
    if (budget_.is_overspent()) {
        timer_.wake_by(Clock::now() + urgent_interval);
    } else if (is_waiting || budget_.is_short()) {
        timer_.wake_by(Clock::now() + relief_interval);
    }
}

// Silence counts only while memory is short, so a peer may otherwise pause for as long as it likes.
// After a relief, the favorite gets `memory_patience` to use what came back.
Clock::time_point MemoryRelief::tick(ConnectionSet& connections, Clock::time_point now) {
    const Clock::time_point silent = now - settings_.memory_silence;
    short_since_ = budget_.is_short() ? std::min(short_since_, now) : Clock::time_point::max();
    const ConnectionSet::Limits limits{
        .silent_since = short_since_ <= silent ? silent : Clock::time_point::min(),
        .stalled_since = now - settings_.memory_patience,
        .favored_since = silent};
    const ConnectionSet::Pressure pressure = connections.look_at_memory(budget_, limits, now);
    const bool is_stuck = pressure.favorite_stalls && last_relief_ <= limits.stalled_since;
    if (budget_.is_overspent(pressure.returning) || is_stuck) {
        connections.break_largest_holder();
        last_relief_ = now;
    }
    if (budget_.is_overspent()) {
        return now + urgent_interval;
    }
    return pressure.is_waiting || budget_.is_short() ? now + relief_interval
                                                     : Clock::time_point::max();
}

}  // namespace Kestin::Net::detail
