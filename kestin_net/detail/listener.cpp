#include "kestin_net/detail/listener.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "kestin_base/log.h"
#include "kestin_base/strings.h"
#include "kestin_net/detail/descriptor_shares.h"
#include "kestin_net/detail/tcp_connection.h"

namespace Kestin::Net::detail {
namespace {

// Accepted in a row, before other events get their turn.
constexpr int most_accepts = 64;

// Until the next attempt after descriptors or memory ran out.
constexpr auto rest_time = std::chrono::milliseconds(100);

// At the limit, every connection that ends makes room for one more, and then there is none again.
constexpr auto telling_interval = std::chrono::minutes(1);

// A peer that is silent for `keepalive_idle` seconds is probed, and gone when it leaves three
// probes unanswered: a minute in all (tcp(7)).
constexpr int keepalive_idle = 30;
constexpr int keepalive_interval = 10;
constexpr int keepalive_probes = 3;

// The longest pause between two retransmissions, or probes of a closed window, in milliseconds, so
// that a vanished peer leaves several of them unanswered within Settings::silence_limit. Linux has
// the option since 6.15 (linux/tcp.h); before that the pause grows to two minutes, and a peer that
// vanishes long after it stopped reading is found after up to four.
constexpr int tcp_rto_max_ms = 44;
constexpr int longest_retry_pause = 20'000;

// How long a read waits that may wait: more than a round trip of a local network.
constexpr timeval patience{.tv_sec = 0, .tv_usec = 1000};

template <typename Value>
bool set_option(int socket, int level, int name, const Value& value) {
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

// Accepted sockets inherit these. Buffer sizes are left to the system, which tunes them to the
// line as long as nobody sets them.
bool set_options(int socket) {
    set_option(socket, IPPROTO_TCP, tcp_rto_max_ms, longest_retry_pause);
    return set_option(socket, SOL_SOCKET, SO_REUSEADDR, 1) &&
           set_option(socket, SOL_SOCKET, SO_KEEPALIVE, 1) &&
           set_option(socket, SOL_SOCKET, SO_RCVTIMEO, patience) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPIDLE, keepalive_idle) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPINTVL, keepalive_interval) &&
           set_option(socket, IPPROTO_TCP, TCP_KEEPCNT, keepalive_probes) &&
           set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1);
}

std::uint64_t descriptor_limit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
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
    return poller().add(socket_.number(), EPOLLIN, *this);
}

void Listener::handle_events(std::uint32_t) {
    for (int count = 0; count < most_accepts; ++count) {
        const Accepted accepted = has_place() ? accept_one() : Accepted::no_resources;
        if (accepted == Accepted::no_resources) {
            return rest();
        }
        if (accepted == Accepted::nothing) {
            break;
        }
    }
    arm();
}

void Listener::close() {
    ::shutdown(socket_.number(), SHUT_RDWR);
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
            tell_rest(::strerrordesc_np(errno));
            return Accepted::no_resources;
        default:
            return Accepted::connection;
    }
}

Listener::Accepted Listener::adopt(Descriptor socket, const sockaddr_in& peer) {
    try {
        TcpConnection& connection = environment_.connections.add(
            std::make_unique<TcpConnection>(environment_, lane_, std::move(socket), peer, port_));
        return connection.start() ? Accepted::connection : Accepted::no_resources;
    } catch (const std::bad_alloc&) {
        return Accepted::no_resources;
    }
}

bool Listener::has_place() {
    const std::uint64_t taken = lane_.connections;
    const std::uint64_t all = places();
    if (taken < all) {
        return true;
    }
    // Composed where it takes no memory, which may be what is missing.
    std::array<char, 160> reason{};
    Base::kestin_snprintf(
        reason.data(), reason.size(),
        "%I64u connections are open, which is all that the limit of %I64u open files leaves "
        "this port",
        taken, descriptor_limit());
    tell_rest(reason.data());
    return false;
}

// Looked up each time, since the limit of a running process can be changed (prlimit(1)).
std::uint64_t Listener::places() const {
    const auto shares = DescriptorShares::of(descriptor_limit(), environment_.own_descriptors);
    return &lane_ == &environment_.lanes.first_port ? shares.first_port : shares.other_ports;
}

void Listener::tell_rest(const char* reason) {
    const Clock::time_point now = Clock::now();
    if (last_told_ == Clock::time_point::min() || now - last_told_ >= telling_interval) {
        last_told_ = now;
        kestin_run_log(KESTIN_LOG_WARNING, "kestin_net", "Listener::tell_rest", __LINE__,
                       "port %u accepts no more connections for now: %s", port_, reason);
    }
}

void Listener::arm() {
    poller().arm(socket_.number(), EPOLLIN, *this);
}

void Listener::rest() {
    WakeTimer& timer = environment_.timer;
    rests_ = true;
    timer.wake_by(Clock::now() + rest_time);
}

}  // namespace Kestin::Net::detail
