#include "kestin_net/detail/event_loop.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

#include "kestin_base/strings.h"
#include "kestin_net/net_switch.h"

namespace Kestin::Net::detail {
namespace {

// All below it are open.
std::uint64_t lowest_free_descriptor() {
    const Descriptor lowest(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    return lowest.is_open() ? static_cast<std::uint64_t>(lowest.number()) : 0;
}

}  // namespace

// The threads use the connections until they end.
EventLoop::~EventLoop() {
    if (!stop()) {
        constexpr auto no_limit = Clock::time_point::max();
        environment_.lanes.other_ports.workers.stop(no_limit);
        environment_.lanes.first_port.workers.stop(no_limit);
        ends_announced_.wait();
    }
}

// All ports listen before the first thread runs, so that no callback comes if one can't be had.
bool EventLoop::start(std::span<const std::uint16_t> ports) {
    if (!open_events() || !listen(ports)) {
        return false;
    }
    environment_.own_descriptors = lowest_free_descriptor();
    return start_listeners() && start_threads();
}

bool EventLoop::stop() {
    const Clock::time_point give_up = Clock::now() + stop_limit;
    Lanes& lanes = environment_.lanes;
    for (Listener& listener : listeners_) {
        listener.close();
    }
    const bool other_ended = lanes.other_ports.workers.stop(give_up - close_limit);
    const bool first_ended = lanes.first_port.workers.stop(give_up - close_limit);
    const bool announced = announce_ends(give_up);
    if (!other_ended || !first_ended || !announced) {
        environment_.service.close();
        environment_.connections.shut_all();
        return false;
    }
    environment_.connections.clear();
    listeners_.clear();
    return true;
}

// On a thread of its own, since an on_close may hang too.
bool EventLoop::announce_ends(Clock::time_point give_up) {
    const auto done = std::make_shared<std::promise<void>>();
    ends_announced_ = done->get_future();
    std::thread announcer;
    try {
        announcer = std::thread([this, give_up, done] {
            const NetSwitch::Thread counted;
            environment_.connections.announce_ends(give_up);
            done->set_value();
        });
    } catch (const std::system_error&) {
        environment_.connections.announce_ends(give_up);
        done->set_value();
        return true;
    }
    if (ends_announced_.wait_until(give_up + 2 * retry_interval) != std::future_status::ready) {
        announcer.detach();
        return false;
    }
    announcer.join();
    return true;
}

void EventLoop::handle_events(std::uint32_t) {
    WakeTimer& timer = environment_.timer;
    timer.begin_tick();
    for (Listener& listener : listeners_) {
        listener.wake();
    }
    const Clock::time_point now = Clock::now();
    timer.wake_by(environment_.connections.break_overdue(now));
    timer.wake_by(environment_.peer_watch.tick(environment_.connections, now));
    timer.wake_by(environment_.memory_relief.tick(environment_.connections, now));
    timer.end_tick();
}

bool EventLoop::open_events() {
    WorkerPool& first = environment_.lanes.first_port.workers;
    WorkerPool& other = environment_.lanes.other_ports.workers;
    return (first.open() && other.open() && environment_.timer.open(other.poller(), *this)) ||
           fail("event queue", errno);
}

bool EventLoop::listen(std::span<const std::uint16_t> ports) {
    return std::all_of(ports.begin(), ports.end(), [this](std::uint16_t port) {
        Lanes& lanes = environment_.lanes;
        Lane& lane = listeners_.empty() ? lanes.first_port : lanes.other_ports;
        return is_listening_on(port) || listeners_.emplace_back(environment_, lane, port).open() ||
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
    if (environment_.settings.thread_count == 0) {
        return fail("callback threads", EINVAL);
    }
    try {
        environment_.lanes.other_ports.workers.start();
        environment_.lanes.first_port.workers.start();
    } catch (const std::system_error& error) {
        return fail("callback threads", error.code().value());
    }
    return true;
}

bool EventLoop::fail(const std::string& what, int error) {
    failure_ = what + ": " + Base::kestin_error_text(error);
    return false;
}

}  // namespace Kestin::Net::detail
