#pragma once

#include <chrono>
#include <cstdint>

#include "kestin_net/detail/units.h"

namespace Kestin::Net::detail {

using Clock = std::chrono::steady_clock;

// What may differ from one event loop to the next; everything else is a named constant beside the
// code that it bounds.
struct Settings {
    std::uint64_t thread_count = 1;

    // How long a connection may stay silent in both directions; 0, for ever.
    Clock::duration idle_limit{0};

    // How long a peer that has bytes to acknowledge may be silent, and how often it is looked for.
    // The kernel probes a closed window every two minutes at least (TCP_RTO_MAX).
    Clock::duration silence_limit = std::chrono::seconds(130);
    Clock::duration peer_watch_interval = std::chrono::seconds(10);

    // Memory of all buffers together, beyond a floor that each connection always has
    // (send_chain.h: send_floor; receive_buffer.h: receive_floor).
    std::uint64_t memory_budget = 1024 * mebibyte;

    // While memory is short: how long a connection may hold some of it and move no byte, and how
    // long one may wait for memory before the largest holder is closed.
    Clock::duration memory_silence = std::chrono::seconds(60);
    Clock::duration memory_patience = std::chrono::seconds(5);
};

}  // namespace Kestin::Net::detail
