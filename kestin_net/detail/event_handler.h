#pragma once

#include <cstdint>

namespace Kestin::Net::detail {

// Whom a thread of the event loop calls when a descriptor is ready.
class EventHandler {
  public:
    EventHandler() = default;
    virtual ~EventHandler() = default;
    EventHandler(const EventHandler&) = delete;
    EventHandler& operator=(const EventHandler&) = delete;

    // `events` are those of epoll_ctl(2). The descriptor is disarmed: no other thread is called
    // for it until the handler arms it again, and after that the handler touches nothing more.
    virtual void handle_events(std::uint32_t events) = 0;
};

}  // namespace Kestin::Net::detail
