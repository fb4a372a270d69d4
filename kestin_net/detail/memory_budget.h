#pragma once

#include <atomic>
#include <cstdint>

namespace Kestin::Net::detail {

// How much memory the buffers of all connections may take together, beyond the floor of each.
// Callable from every thread.
class MemoryBudget {
  public:
    explicit MemoryBudget(std::uint64_t limit) : limit_(limit) {}

    // For bytes that can't wait, such as an answer: takes all of `size`, or nothing and returns
    // false at the limit.
    bool take(std::uint64_t size) { return take_up_to(limit_, size); }

    // For bytes that can wait: as `take`, but the holder, which holds `held` already, gets no more
    // than it leaves to all others, and leaves the reserve alone. So the greedy share the memory
    // evenly, and a newcomer finds as much as each of them has.
    bool take_share(std::uint64_t size, std::uint64_t held) {
        const std::uint64_t margin = reserve() + held + size;
        return margin <= limit_ && take_up_to(limit_ - margin, size);
    }

    void give_back(std::uint64_t size) { used_.fetch_sub(size, std::memory_order_relaxed); }

    // More than five eighths are in use, not counting `returning` of it: peers must read before
    // they get more, and those that move nothing are closed.
    bool is_short(std::uint64_t returning = 0) const { return used() > limit_ / 8 * 5 + returning; }

    // Half of the reserve is in use: the largest holder is closed.
    bool is_overspent(std::uint64_t returning = 0) const {
        return used() > limit_ - reserve() / 2 + returning;
    }

  private:
    std::uint64_t used() const { return used_.load(std::memory_order_relaxed); }
    // For answers, and for one frame that must be completed so that memory comes back.
    std::uint64_t reserve() const { return limit_ / 4; }

    bool take_up_to(std::uint64_t limit, std::uint64_t size) {
        std::uint64_t used = used_.load(std::memory_order_relaxed);
        do {
            if (used > limit || size > limit_ - used) {
                return false;
            }
        } while (!used_.compare_exchange_weak(used, used + size, std::memory_order_relaxed));
        return true;
    }

    const std::uint64_t limit_;
    std::atomic<std::uint64_t> used_{0};
};

}  // namespace Kestin::Net::detail
