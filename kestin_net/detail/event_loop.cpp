#include "kestin_net/detail/event_loop.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "kestin_base/strings.h"
#include "kestin_net/net_switch.h"

namespace Kestin::Net::detail {

// All ports listen before the first thread runs, so that no callback comes if one can't be had.
bool EventLoop::start(std::span<const std::uint16_t> ports) {
    return open_events() && listen(ports) && start_listeners() && start_threads();
}

void EventLoop::stop() {
    const Clock::time_point give_up = Clock::now() + stop_limit;
    environment_.poller.stop();
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
    listeners_.clear();
    environment_.connections.close_all(give_up);
}

void EventLoop::handle_events(std::uint32_t) {
    WakeTimer& timer = environment_.timer;
    timer.begin_tick();
    for (Listener& listener : listeners_) {
        listener.wake();
    }
    timer.wake_by(environment_.connections.break_overdue(Clock::now()));
    timer.end_tick(environment_.poller, *this);
}

bool EventLoop::open_events() {
    return (environment_.poller.open() && environment_.timer.open(environment_.poller, *this) &&
            environment_.retries.open(environment_.poller)) ||
           fail("event queue", errno);
}

bool EventLoop::listen(std::span<const std::uint16_t> ports) {
    return std::all_of(ports.begin(), ports.end(), [this](std::uint16_t port) {
        return is_listening_on(port) || listeners_.emplace_back(environment_, port).open() ||
               fail("port " + std::to_string(port), errno);
    });
}

bool EventLoop::is_listening_on(std::uint16_t port) const {
    return std::any_of(listeners_.begin(), listeners_.end(),
                       [port](const Listener& listener) { return listener.port() == port; });
}

bool EventLoop::start_listeners() {
    return std::all_of(listeners_.begin(), listeners_.end(), [this](Listener& listener) {
        return listener.start() || fail("event queue", errno);
    });
}

bool EventLoop::start_threads() {
    try {
        while (threads_.size() < environment_.settings.thread_count) {
            threads_.emplace_back([this] {
                NetSwitch::instance().run_thread_start();
                environment_.poller.run();
            });
        }
    } catch (const std::system_error& error) {
        return fail("callback threads", error.code().value());
    }
    return !threads_.empty() || fail("callback threads", EINVAL);
}

bool EventLoop::fail(const std::string& what, int error) {
    failure_ = what + ": " + Base::kestin_error_text(error);
    return false;
}

}  // namespace Kestin::Net::detail
