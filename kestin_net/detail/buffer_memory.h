#pragma once

#include <cstddef>
#include <cstdint>

#include "kestin_net/detail/block_pool.h"
#include "kestin_net/detail/memory_budget.h"
#include "kestin_net/detail/shared_bodies.h"
#include "kestin_net/detail/units.h"

namespace Kestin::Net::detail {

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
    SharedBodies shared_bodies{budget};
};

}  // namespace Kestin::Net::detail
