#include "client/rate_limiter.h"

#include <algorithm>

namespace transmit {
namespace {

constexpr std::uint64_t steps_per_second = 20;
// Steps are never so small that system calls count.
constexpr std::uint64_t smallest_step = 1024;

}  // namespace

// Time that passed unused is not made up for, so no second exceeds the limit by more than a step.
std::chrono::nanoseconds RateLimiter::reserve(std::size_t size, Clock::time_point now) {
    if (rate_ == 0) {
        return {};
    }
    const std::chrono::duration<double> cost(static_cast<double>(size) /
                                             static_cast<double>(rate_));
    const std::lock_guard guard(lock_);
    const Clock::time_point start = std::max(next_, now);
    next_ = start + std::chrono::ceil<Clock::duration>(cost);
    return start - now;
}

std::size_t RateLimiter::step(std::size_t size) const {
    if (rate_ == 0) {
        return size;
    }
    return std::min<std::uint64_t>(size, std::max(rate_ / steps_per_second, smallest_step));
}

}  // namespace transmit
