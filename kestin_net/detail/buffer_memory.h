#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kestin_net/detail/block_pool.h"
#include "kestin_net/detail/units.h"

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

// One block of a send chain: room for a chunk of 64 KiB with an 8-byte header before it, and the
// chain's own fields.
inline constexpr std::size_t send_block_size = 64 + 64 * kibibyte;

// What the budget counts for it: the whole pages that the system gives.
inline constexpr std::size_t send_block_charge = 68 * kibibyte;

// The memory that a connection reads into: one read and the beginning of a 64 KiB frame.
inline constexpr std::size_t receive_block_size = 320 * kibibyte;

// What the buffers of all connections draw from.
struct BufferMemory {
    explicit BufferMemory(std::uint64_t limit) : budget(limit) {}

    // Idle blocks serve what the running threads take and release in their turns.
    static constexpr std::size_t most_idle_send_blocks = 128;
    static constexpr std::size_t most_idle_receive_blocks = 16;

    MemoryBudget budget;
    BlockPool send_blocks{send_block_size, most_idle_send_blocks};
    BlockPool receive_blocks{receive_block_size, most_idle_receive_blocks};
};

}  // namespace Kestin::Net::detail
