#include "bench/socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/support/raw_socket.h"

namespace bench {
namespace {

// One call takes at most this off the wire.
constexpr std::uint64_t discarded_at_once = 4 << 20;

template <typename Result>
Result checked(Result result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

int new_socket() {
    const int descriptor = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    return descriptor;
}

}  // namespace

Socket Socket::connect_to(std::uint16_t port) {
    Socket socket(new_socket());
    checked(support::with_loopback(::connect, socket.descriptor_, port), "connect");
    return socket;
}

Socket Socket::listen_on(std::uint16_t port) {
    Socket socket(new_socket());
    checked(support::with_loopback(::bind, socket.descriptor_, port), "bind");
    checked(listen(socket.descriptor_, SOMAXCONN), "listen");
    return socket;
}

Socket Socket::accept() const {
    Socket accepted(checked(accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
    const int on = 1;
    setsockopt(accepted.descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return accepted;
}

Socket::Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {
}

Socket& Socket::operator=(Socket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Socket::~Socket() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void Socket::send(std::span<const std::byte> bytes) const {
    while (!bytes.empty()) {
        const auto sent =
            checked(::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
}

void Socket::send(std::span<const std::byte> first, std::span<const std::byte> second) const {
    const auto piece = [](std::span<const std::byte> bytes) {
        return iovec{const_cast<std::byte*>(bytes.data()), bytes.size()};
    };
    std::array<iovec, 2> pieces{piece(first), piece(second)};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    const auto sent =
        static_cast<std::size_t>(checked(sendmsg(descriptor_, &message, MSG_NOSIGNAL), "send"));
    send(first.subspan(std::min(sent, first.size())));
    send(second.subspan(sent - std::min(sent, first.size())));
}

std::size_t Socket::receive_some(std::span<std::byte> bytes) const {
    return static_cast<std::size_t>(
        checked(recv(descriptor_, bytes.data(), bytes.size(), 0), "recv"));
}

void Socket::receive(std::span<std::byte> bytes) const {
    while (!bytes.empty()) {
        const std::size_t got = receive_some(bytes);
        if (got == 0) {
            throw std::runtime_error("the peer closed the connection");
        }
        bytes = bytes.subspan(got);
    }
}

void Socket::discard(std::uint64_t size) const {
    while (size > 0) {
        const std::uint64_t got = discard_some(size);
        if (got == 0) {
            throw std::runtime_error("the peer closed the connection");
        }
        size -= got;
    }
}

std::uint64_t Socket::discard_to_end() const {
    std::uint64_t size = 0;
    while (const std::uint64_t got = discard_some(discarded_at_once)) {
        size += got;
    }
    return size;
}

std::uint64_t Socket::discard_some(std::uint64_t size) const {
    return static_cast<std::uint64_t>(
        checked(recv(descriptor_, nullptr, std::min(size, discarded_at_once), MSG_TRUNC), "recv"));
}

}  // namespace bench
