#include "kestin_net/detail/poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

namespace Kestin::Net::detail {
namespace {

bool control(int epoll, int operation, int descriptor, std::uint32_t events,
             EventHandler* handler) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = handler;
    return ::epoll_ctl(epoll, operation, descriptor, &event) == 0;
}

}  // namespace

bool Poller::open() {
    epoll_ = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
    stop_event_ = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return epoll_.is_open() && stop_event_.is_open() &&
           control(epoll_.number(), EPOLL_CTL_ADD, stop_event_.number(), EPOLLIN, nullptr);
}

bool Poller::add(int descriptor, std::uint32_t events, EventHandler& handler) {
    return control(epoll_.number(), EPOLL_CTL_ADD, descriptor, events | EPOLLONESHOT, &handler);
}

bool Poller::arm(int descriptor, std::uint32_t events, EventHandler& handler) {
    return control(epoll_.number(), EPOLL_CTL_MOD, descriptor, events | EPOLLONESHOT, &handler);
}

void Poller::run() {
    while (true) {
        epoll_event event{};
        if (::epoll_wait(epoll_.number(), &event, 1, -1) != 1) {
            continue;
        }
        if (event.data.ptr == nullptr) {
            return;
        }
        static_cast<EventHandler*>(event.data.ptr)->handle_events(event.events);
    }
}

void Poller::stop() {
    ::eventfd_write(stop_event_.number(), 1);
}

}  // namespace Kestin::Net::detail
