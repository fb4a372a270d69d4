#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace bench {

// Blocking TCP on 127.0.0.1, as thin as the system calls allow: a wrapper's own work would show in
// the figures. What fails throws.
class Socket {
  public:
    static Socket connect_to(std::uint16_t port);
    static Socket listen_on(std::uint16_t port);
    Socket accept() const;

    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket();

    int descriptor() const { return descriptor_; }

    void send(std::span<const std::byte> bytes) const;
    void send(const std::string& text) const { send(std::as_bytes(std::span(text))); }
    // Both as one, in one call.
    void send(std::span<const std::byte> first, std::span<const std::byte> second) const;
    // At least one byte; 0 at the peer's end.
    std::size_t receive_some(std::span<std::byte> bytes) const;
    void receive(std::span<std::byte> bytes) const;
    // Takes bytes off the wire without copying them anywhere (MSG_TRUNC, tcp(7)).
    void discard(std::uint64_t size) const;
    // The same for all bytes up to the peer's end; their number.
    std::uint64_t discard_to_end() const;

  private:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}

    std::uint64_t discard_some(std::uint64_t size) const;

    int descriptor_ = -1;
};

}  // namespace bench
