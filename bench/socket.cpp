#include "bench/socket.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

template <typename Result>
Result checked(Result result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
    return result;
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
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
    const sockaddr_in address = loopback(port);
    checked(
        connect(socket.descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address),
        "connect");
    return socket;
}

Socket Socket::listen_on(std::uint16_t port) {
    Socket socket(new_socket());
    const sockaddr_in address = loopback(port);
    checked(bind(socket.descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address),
            "bind");
    checked(listen(socket.descriptor_, SOMAXCONN), "listen");
    return socket;
}

Socket Socket::accept() const {
    return Socket(checked(accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
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

void Socket::send(std::span<const std::byte> bytes, int flags) const {
    while (!bytes.empty()) {
        const auto sent =
            checked(::send(descriptor_, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL), "send");
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
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

void Socket::peek(std::span<std::byte> bytes) const {
    checked(recv(descriptor_, bytes.data(), bytes.size(), MSG_PEEK | MSG_WAITALL), "recv");
}

void Socket::discard(std::uint64_t size) const {
    constexpr std::uint64_t at_once = 4 << 20;
    while (size > 0) {
        const auto got =
            checked(recv(descriptor_, nullptr, std::min(size, at_once), MSG_TRUNC), "recv");
        if (got == 0) {
            throw std::runtime_error("the peer closed the connection");
        }
        size -= static_cast<std::uint64_t>(got);
    }
}
