#include "client/detail/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace transmit::detail {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The longest wait between two questions whether the caller still wants to wait.
constexpr milliseconds slice{200};
// A server answers the first request at once. What is silent for so long is none.
constexpr milliseconds longest_first_wait{15'000};

// One wait for the peer: bounded, and ended by the caller's wish.
class Patience {
  public:
    Patience(const WaitLimits& limits, milliseconds limit) : limits_(limits), limit_(limit) {}

    void renew() {
        start_ = Clock::now();
        told_ = false;
    }

    Result<void> still() {
        if (limits_.cancelled && limits_.cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        const auto waited = Clock::now() - start_;
        if (waited >= limit_) {
            return Error{ErrorKind::time_limit, 0,
                         "the server was silent for " + std::to_string(limit_.count()) + " ms" +
                             (limit_ == longest_first_wait ? " (is this its transmit port?)" : "")};
        }
        if (waited >= limits_.stall && limits_.stalled && !std::exchange(told_, true)) {
            limits_.stalled();
        }
        return {};
    }

  private:
    const WaitLimits& limits_;
    milliseconds limit_;
    Clock::time_point start_ = Clock::now();
    bool told_ = false;
};

bool is_pause(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

std::string reason(int error) {
    return std::generic_category().message(error);
}

Error lost(const std::string& why) {
    return {ErrorKind::connection_lost, 0, "the connection broke: " + why};
}

// Gives the caller's wish a chance after a call that failed; an error if the wait is over.
Result<void> after_failed_call(Patience& patience) {
    if (const int error = errno; !is_pause(error)) {
        return lost(reason(error));
    }
    return patience.still();
}

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// The addresses of a family; getaddrinfo's error in place of them.
Addresses look_up(const std::string& host, std::uint16_t port, int family, int& error) {
    addrinfo wanted{};
    wanted.ai_family = family;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found);
    return {error == 0 ? found : nullptr, &freeaddrinfo};
}

// The host as it is looked up: an IPv6 address that stands for an IPv4 one (RFC 4291, section
// 2.5.5.2) as that, and any other by its name, if it has one.
std::string host_to_look_up(const std::string& host) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    if (inet_pton(AF_INET6, host.c_str(), &address.sin6_addr) != 1) {
        return host;
    }
    if (IN6_IS_ADDR_V4MAPPED(&address.sin6_addr)) {
        std::array<char, INET_ADDRSTRLEN> text{};
        return inet_ntop(AF_INET, &address.sin6_addr.s6_addr[12], text.data(), text.size());
    }
    std::array<char, NI_MAXHOST> name{};
    const bool has_name = getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address,
                                      name.data(), name.size(), nullptr, 0, NI_NAMEREQD) == 0;
    return has_name ? name.data() : host;
}

Result<Addresses> resolve(const Endpoint& endpoint) {
    int error = 0;
    auto found = look_up(host_to_look_up(endpoint.host), endpoint.port, AF_INET, error);
    if (found) {
        return found;
    }
    int other_error = 0;
    if (look_up(endpoint.host, endpoint.port, AF_INET6, other_error)) {
        return Error{ErrorKind::no_connection, 0,
                     endpoint.host + " has no IPv4 address, and the server speaks IPv4 only"};
    }
    return Error{ErrorKind::no_connection, 0,
                 "the name " + endpoint.host + " can't be resolved: " + gai_strerror(error)};
}

Error unreachable(const Endpoint& endpoint, const std::string& why) {
    return {ErrorKind::no_connection, 0,
            "no connection to " + endpoint.host + ":" + std::to_string(endpoint.port) + ": " + why};
}

// The error of a connect under way: 0 when it is through, EINPROGRESS while it isn't.
int connect_outcome(int descriptor) {
    pollfd waiting{descriptor, POLLOUT, 0};
    if (poll(&waiting, 1, static_cast<int>(slice.count())) <= 0) {
        return EINPROGRESS;
    }
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

Result<FileDescriptor> connect_to(const addrinfo& address, const Endpoint& endpoint,
                                  const WaitLimits& limits) {
    FileDescriptor descriptor(
        socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    if (!descriptor.is_open()) {
        return unreachable(endpoint, reason(errno));
    }
    int error = ::connect(descriptor.get(), address.ai_addr, address.ai_addrlen) ? errno : 0;
    Patience patience(limits, limits.connect);
    while (error == EINPROGRESS) {
        error = connect_outcome(descriptor.get());
        const auto waiting = patience.still();
        if (error == EINPROGRESS && !waiting) {
            return waiting.error().kind == ErrorKind::cancelled
                       ? waiting.error()
                       : unreachable(endpoint, "no answer in time");
        }
    }
    if (error != 0) {
        return unreachable(endpoint, reason(error));
    }
    return descriptor;
}

// Blocking calls that return after a slice without movement, and no delay for small messages.
void set_options(int descriptor) {
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    const timeval wait{0, std::chrono::microseconds(slice).count()};
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::span<iovec> without_first(std::span<iovec> parts, std::size_t count) {
    while (!parts.empty() && count >= parts.front().iov_len) {
        count -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<char*>(parts.front().iov_base) + count;
        parts.front().iov_len -= count;
    }
    return parts;
}

}  // namespace

Result<Socket> Socket::connect(const Endpoint& endpoint, WaitLimits limits) {
    const auto addresses = resolve(endpoint);
    if (!addresses) {
        return addresses.error();
    }
    Error last = unreachable(endpoint, "it has no address");
    for (const addrinfo* address = addresses->get(); address; address = address->ai_next) {
        auto descriptor = connect_to(*address, endpoint, limits);
        if (descriptor) {
            set_options(descriptor->get());
            return Socket(*std::move(descriptor), std::move(limits));
        }
        last = descriptor.error();
        if (last.kind == ErrorKind::cancelled) {
            break;
        }
    }
    return last;
}

Result<void> Socket::send_all(std::span<iovec> parts) {
    Patience patience(limits_, limits_.silence);
    parts = without_first(parts, 0);
    while (!parts.empty()) {
        if (cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        const ssize_t sent = sendmsg(descriptor_.get(), &message, MSG_NOSIGNAL);
        if (sent >= 0) {
            parts = without_first(parts, static_cast<std::size_t>(sent));
            patience.renew();
        } else if (auto waiting = after_failed_call(patience); !waiting) {
            return waiting;
        }
    }
    return {};
}

milliseconds Socket::patience_of_receive() const {
    return heard_ ? limits_.silence : std::min(limits_.silence, longest_first_wait);
}

Result<void> Socket::receive_exactly(void* data, std::size_t size) {
    Patience patience(limits_, patience_of_receive());
    auto* place = static_cast<char*>(data);
    while (size > 0) {
        if (cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        const ssize_t received = recv(descriptor_.get(), place, size, MSG_WAITALL);
        if (received == 0) {
            return lost("the server closed it");
        }
        if (received > 0) {
            heard_ = true;
            place += received;
            size -= static_cast<std::size_t>(received);
            patience.renew();
        } else if (auto waiting = after_failed_call(patience); !waiting) {
            return waiting;
        }
    }
    return {};
}

Result<std::size_t> Socket::receive_some(void* data, std::size_t size) {
    Patience patience(limits_, patience_of_receive());
    while (true) {
        if (cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        const ssize_t received = recv(descriptor_.get(), data, size, 0);
        if (received > 0) {
            heard_ = true;
            return static_cast<std::size_t>(received);
        }
        if (received == 0) {
            return lost("the server closed it");
        }
        if (const auto waiting = after_failed_call(patience); !waiting) {
            return waiting.error();
        }
    }
}

bool Socket::readable() const {
    pollfd waiting{descriptor_.get(), POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

}  // namespace transmit::detail
