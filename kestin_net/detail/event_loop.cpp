#include "kestin_net/detail/event_loop.h"

#include <algorithm>
#include <system_error>

#include "kestin_net/net_switch.h"

namespace Kestin::Net::detail {

// All ports listen before the first thread runs, so that no callback comes if one can't be had.
bool EventLoop::start(std::span<const std::uint16_t> ports) {
    return environment_.poller.open() && environment_.timer.open(environment_.poller, *this) &&
           listen(ports) && start_listeners() && start_threads();
}

void EventLoop::stop() {
    environment_.poller.stop();
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
    listeners_.clear();
    environment_.connections.close_all();
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

bool EventLoop::listen(std::span<const std::uint16_t> ports) {
    return std::all_of(ports.begin(), ports.end(), [this](std::uint16_t port) {
        return is_listening_on(port) || listeners_.emplace_back(environment_, port).open();
    });
}

bool EventLoop::is_listening_on(std::uint16_t port) const {
    return std::any_of(listeners_.begin(), listeners_.end(),
                       [port](const Listener& listener) { return listener.port() == port; });
}

bool EventLoop::start_listeners() {
    return std::all_of(listeners_.begin(), listeners_.end(),
                       [](Listener& listener) { return listener.start(); });
}

bool EventLoop::start_threads() {
    try {
        while (threads_.size() < environment_.settings.thread_count) {
            threads_.emplace_back([this] {
                NetSwitch::instance().run_thread_start();
                environment_.poller.run();
            });
        }
    } catch (const std::system_error&) {
        return false;
    }
    return !threads_.empty();
}

}  // namespace Kestin::Net::detail
