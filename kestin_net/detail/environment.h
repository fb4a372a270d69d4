#pragma once

#include <atomic>

#include "kestin_net/detail/buffer_memory.h"
#include "kestin_net/detail/connection_set.h"
#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/poller.h"
#include "kestin_net/detail/retry_queue.h"
#include "kestin_net/detail/settings.h"
#include "kestin_net/detail/wake_timer.h"
#include "kestin_net/tcp_service_base.h"

namespace Kestin::Net::detail {

// What the listeners and connections of one event loop share. It outlives them all.
struct Environment {
    Environment(TcpServiceBase& to_call, const Settings& chosen)
        : service(to_call), settings(chosen), memory(chosen.memory_budget) {}

    TcpServiceBase& service;
    const Settings settings;
    Poller poller;
    WakeTimer timer;
    RetryQueue retries;
    BufferMemory memory;
    ConnectionSet connections;

    // Whose event a thread took last; only to be compared with.
    std::atomic<const EventHandler*> last_served = nullptr;
};

}  // namespace Kestin::Net::detail
