#pragma once

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/worker_pool.h"

namespace Kestin::Net::detail {

// What the connections of some ports have for themselves, so that no others can take it from them:
// threads and places.
struct Lane {
    explicit Lane(PoolSize threads) : workers(threads) {}

    WorkerPool workers;

    // How many connections there are.
    std::atomic<std::uint64_t> connections{0};
};

// The lanes of one event loop. A callback of a connection of the first port may wait for a disk.
// Listeners, the timer and the connections of all other ports have threads of their own, so that
// accepting and answering there goes on when every thread of the first lane is blocked.
struct Lanes {
    // Threads that may be blocked in the first lane beside the usual ones.
    static constexpr std::uint64_t most_blocked = 256;
    // Two, so that a long answer doesn't hold up the accepting.
    static constexpr PoolSize other_threads{.usual = 2, .most = 32};

    explicit Lanes(std::uint64_t thread_count)
        : first_port({.usual = thread_count, .most = thread_count + most_blocked}),
          other_ports(other_threads) {}

    Lane first_port;
    Lane other_ports;
};

}  // namespace Kestin::Net::detail
