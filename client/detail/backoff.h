#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace transmit::detail {

// The pauses between attempts: doubling, bounded, and none beyond the time limit.
class Backoff {
  public:
    using Clock = std::chrono::steady_clock;

    Backoff(std::chrono::milliseconds first, std::chrono::milliseconds longest,
            std::chrono::milliseconds time_limit)
        : first_(first), longest_(longest), time_limit_(time_limit), next_(first) {}

    void restart(Clock::time_point now = Clock::now()) {
        next_ = first_;
        deadline_ = now + time_limit_;
    }

    // The pause before the next attempt; none if it would end behind the deadline.
    std::optional<std::chrono::milliseconds> next_pause(Clock::time_point now = Clock::now()) {
        const auto pause = next_;
        if (now + pause > deadline_) {
            return std::nullopt;
        }
        next_ = std::min(next_ * 2, longest_);
        return pause;
    }

    // Until no further pause is given, if nothing moves.
    std::chrono::milliseconds left(Clock::time_point now = Clock::now()) const {
        return std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now);
    }

  private:
    std::chrono::milliseconds first_;
    std::chrono::milliseconds longest_;
    std::chrono::milliseconds time_limit_;
    std::chrono::milliseconds next_;
    Clock::time_point deadline_;
};

}  // namespace transmit::detail
