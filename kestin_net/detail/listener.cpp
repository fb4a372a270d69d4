#include "kestin_net/detail/listener.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "kestin_net/detail/tcp_connection.h"

namespace Kestin::Net::detail {
namespace {

// Accepted in a row, before other events get their turn.
constexpr int most_accepts = 64;

// Until the next attempt after descriptors or memory ran out.
constexpr auto rest_time = std::chrono::milliseconds(100);

// A peer that is silent for `keepalive_idle` seconds is probed, and gone when it leaves three
// probes unanswered: a minute in all (tcp(7)).
constexpr int keepalive_idle = 30;
constexpr int keepalive_interval = 10;
constexpr int keepalive_probes = 3;

// How long a read waits that may wait: more than a round trip of a local network.
constexpr timeval patience{.tv_sec = 0, .tv_usec = 1000};

template <typename Value>
bool set_option(int socket, int level, int name, const Value& value) {
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

// Accepted sockets inherit these. Buffer sizes are left to the system, which tunes them to the
// line as long as nobody sets them.
bool set_options(int socket) {
    return set_option(socket, SOL_SOCKET, SO_REUSEADDR, 1) &&
           set_option(socket, SOL_SOCKET, SO_KEEPALIVE, 1) &&
           set_option(socket, SOL_SOCKET, SO_RCVTIMEO, patience) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPIDLE, keepalive_idle) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPINTVL, keepalive_interval) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPCNT, keepalive_probes) &&
           set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1);
}

bool bind_any_address(int socket, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

bool Listener::open() {
    socket_ = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return socket_.is_open() && set_options(socket_.number()) &&
           bind_any_address(socket_.number(), port_) && ::listen(socket_.number(), SOMAXCONN) == 0;
}

bool Listener::start() {
    return environment_.poller.add(socket_.number(), EPOLLIN, *this);
}

void Listener::handle_events(std::uint32_t) {
    for (int count = 0; count < most_accepts; ++count) {
        const Accepted accepted = accept_one();
        if (accepted == Accepted::no_resources) {
            return rest();
        }
        if (accepted == Accepted::nothing) {
            break;
        }
    }
    arm();
}

void Listener::wake() {
    if (rests_.exchange(false)) {
        arm();
    }
}

// Errors of the network that waited on the new connection are this connection's alone (accept(2)).
Listener::Accepted Listener::accept_one() {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    Descriptor socket(
        ::accept4(socket_.number(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
    if (socket.is_open()) {
        return adopt(std::move(socket), peer);
    }
    switch (errno) {
        case EAGAIN:
            return Accepted::nothing;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return Accepted::no_resources;
        default:
            return Accepted::connection;
    }
}

Listener::Accepted Listener::adopt(Descriptor socket, const sockaddr_in& peer) {
    try {
        TcpConnection& connection = environment_.connections.add(
            std::make_unique<TcpConnection>(environment_, std::move(socket), peer, port_));
        return connection.start() ? Accepted::connection : Accepted::no_resources;
    } catch (const std::bad_alloc&) {
        return Accepted::no_resources;
    }
}

void Listener::arm() {
    environment_.poller.arm(socket_.number(), EPOLLIN, *this);
}

void Listener::rest() {
    WakeTimer& timer = environment_.timer;
    rests_ = true;
    timer.wake_by(Clock::now() + rest_time);
}

}  // namespace Kestin::Net::detail
