#pragma once

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/buffer_memory.h"
#include "kestin_net/detail/callback_gate.h"
#include "kestin_net/detail/connection_set.h"
#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/lane.h"
#include "kestin_net/detail/memory_relief.h"
#include "kestin_net/detail/peer_watch.h"
#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/wake_timer.h"
#include "kestin_net/tcp_service_base.h"

namespace Kestin::Net::detail {

// What the listeners and connections of one event loop share. It outlives them all.
struct Environment {
    Environment(TcpServiceBase& to_call, const Settings& chosen)
        : service(to_call),
          settings(chosen),
          lanes(chosen.thread_count),
          peer_watch(chosen.peer_watch_interval, timer),
          memory(chosen.memory_budget) {}

    CallbackGate service;
    const Settings settings;
    Lanes lanes;
    WakeTimer timer;
    PeerWatch peer_watch;
    BufferMemory memory;
    MemoryRelief memory_relief{memory.budget, settings, timer};
    ConnectionSet connections;

    // How many descriptors the process had open before the first connection came.
    std::uint64_t own_descriptors = 0;

    // The handler whose event a thread took last. It may be gone: compare it, never call it.
    std::atomic<const EventHandler*> last_served = nullptr;
};

}  // namespace Kestin::Net::detail
