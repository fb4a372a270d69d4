#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace transmit {

// Holds file data of both directions and of any number of connections together to so many bytes a
// second, in steps so small that each second, from the first, keeps to it. Several threads may
// share one; it outlives what it limits.
class RateLimiter {
  public:
    using Clock = std::chrono::steady_clock;

    // 0: no limit.
    explicit RateLimiter(std::uint64_t bytes_per_second = 0) : rate_(bytes_per_second) {}

    // Takes the right to move `size` bytes; how long to wait before they are moved.
    std::chrono::nanoseconds reserve(std::size_t size, Clock::time_point now = Clock::now());
    // The most that one step should move, of `size` bytes that could be: a twentieth of a second's.
    std::size_t step(std::size_t size) const;

  private:
    const std::uint64_t rate_;
    std::mutex lock_;
    Clock::time_point next_{};
};

}  // namespace transmit
