#include "tests/support/raw_socket.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <random>
#include <string>
#include <system_error>

namespace support {

namespace {

void set_limit(int descriptor, std::chrono::milliseconds limit) {
    timeval time{};
    time.tv_sec = limit.count() / 1000;
    time.tv_usec = limit.count() % 1000 * 1000;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

bool can_listen_on(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool free = with_loopback(::bind, descriptor, port) == 0;
    ::close(descriptor);
    return free;
}

// Binds a name of the abstract namespace (unix(7)), which the kernel frees when this process ends.
bool reserve(std::uint16_t port) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string text = "transmit-test-port-" + std::to_string(port);
    std::copy(text.begin(), text.end(), name.sun_path + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto size = offsetof(sockaddr_un, sun_path) + 1 + text.size();
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&name), socklen_t(size)) == 0) {
        return true;
    }
    ::close(descriptor);
    return false;
}

}  // namespace

int with_loopback(int (*call)(int, const sockaddr*, socklen_t), int descriptor,
                  std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

std::uint16_t free_port() {
    static std::mt19937 generator(std::random_device{}());
    // ip(7): outgoing connections get ports from 32768 on, unless configured otherwise.
    std::uniform_int_distribution<std::uint16_t> candidates(10000, 32767);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::uint16_t port = candidates(generator);
        if (reserve(port) && can_listen_on(port)) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

RawSocket::RawSocket(std::uint16_t port, std::chrono::milliseconds limit)
    : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    set_limit(descriptor_, limit);
    const int at_once = 1;
    setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
    if (with_loopback(::connect, descriptor_, port) != 0) {
        const int reason = errno;
        close();
        throw std::system_error(reason, std::generic_category(), "connect");
    }
}

RawSocket::~RawSocket() {
    close();
}

bool RawSocket::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::string RawSocket::receive(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t received = 0;
    while (received < size) {
        const ssize_t got = ::recv(descriptor_, bytes.data() + received, size - received, 0);
        if (got <= 0) {
            break;
        }
        received += static_cast<std::size_t>(got);
    }
    bytes.resize(received);
    return bytes;
}

std::string RawSocket::receive_to_end() {
    std::string bytes;
    std::array<char, 65536> block;
    ssize_t got = 0;
    while ((got = ::recv(descriptor_, block.data(), block.size(), 0)) > 0) {
        bytes.append(block.data(), static_cast<std::size_t>(got));
    }
    return bytes;
}

bool RawSocket::await_close() {
    std::array<char, 65536> block;
    ssize_t got = 0;
    do {
        got = ::recv(descriptor_, block.data(), block.size(), 0);
    } while (got > 0);
    return got == 0 || errno == ECONNRESET || errno == EPIPE;
}

void RawSocket::finish_sending() {
    ::shutdown(descriptor_, SHUT_WR);
}

void RawSocket::reset() {
    const linger none{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    close();
}

std::uint16_t RawSocket::local_port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

void RawSocket::close() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

}  // namespace support
