#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <future>
#include <span>
#include <string>

#include "kestin_net/detail/environment.h"
#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/listener.h"

namespace Kestin::Net::detail {

// How long a stop waits for callbacks that take their time, and how much of it is kept for the
// on_close of all other connections.
inline constexpr auto stop_limit = std::chrono::seconds(10);
inline constexpr auto close_limit = std::chrono::seconds(1);

// The running substrate: threads that wait on one poller, and what they serve. Each connection and
// listener is with one thread at a time, whichever comes first. Started once and stopped once.
class EventLoop final : private EventHandler {
  public:
    EventLoop(TcpServiceBase& service, const Settings& settings)
        : environment_(service, settings) {}
    // Waits for all threads, however long a callback hangs.
    ~EventLoop() override;

    // Returns false, with nothing left behind but for `stop`, if it can't listen on a port or the
    // system has no descriptors or threads left. `failure` then tells which of these, as
    // TcpManager::failure.
    bool start(std::span<const std::uint16_t> ports);
    const std::string& failure() const { return failure_; }

    // As TcpManager::exit. False: callbacks still hang, and their threads use the loop again when
    // these return. It must not be destroyed then.
    bool stop();

    // How many threads run callbacks of the first port at this moment.
    std::uint64_t first_port_threads() const {
        return environment_.lanes.first_port.workers.thread_count();
    }

  private:
    // The tick of the timer: looks after all that waits for a time.
    void handle_events(std::uint32_t events) override;

    bool open_events();
    bool listen(std::span<const std::uint16_t> ports);
    bool is_listening_on(std::uint16_t port) const;
    bool start_listeners();
    bool start_threads();
    bool announce_ends(Clock::time_point give_up);
    bool fail(const std::string& what, int error);

    Environment environment_;
    std::deque<Listener> listeners_;
    // Ready when the last on_close of `stop` has returned.
    std::future<void> ends_announced_;
    std::string failure_;
};

}  // namespace Kestin::Net::detail
