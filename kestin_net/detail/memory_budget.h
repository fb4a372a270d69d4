#pragma once

#include <atomic>
#include <cstdint>

namespace Kestin::Net::detail {

// How much memory the buffers of all connections may take together, beyond the floor of each.
// Callable from every thread.
class MemoryBudget {
  public:
    explicit MemoryBudget(std::uint64_t limit) : limit_(limit) {}

    // All of `size`, or nothing and false.
    bool take(std::uint64_t size) {
        std::uint64_t used = used_.load(std::memory_order_relaxed);
        do {
            if (size > limit_ - used) {
                return false;
            }
        } while (!used_.compare_exchange_weak(used, used + size, std::memory_order_relaxed));
        return true;
    }
    void give_back(std::uint64_t size) { used_.fetch_sub(size, std::memory_order_relaxed); }

    // More than half is in use: time to save.
    bool is_strained() const { return used_.load(std::memory_order_relaxed) > limit_ / 2; }

  private:
    const std::uint64_t limit_;
    std::atomic<std::uint64_t> used_{0};
};

}  // namespace Kestin::Net::detail
