#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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

    // `flags` as send(2) takes them.
    void send(std::span<const std::byte> bytes, int flags = 0) const;
    // At least one byte; 0 at the peer's end.
    std::size_t receive_some(std::span<std::byte> bytes) const;
    void receive(std::span<std::byte> bytes) const;
    // The same, and leaves them to the next receive.
    void peek(std::span<std::byte> bytes) const;
    // Takes bytes off the wire without copying them anywhere (MSG_TRUNC, tcp(7)).
    void discard(std::uint64_t size) const;

    template <typename Record>
    void send_record(const Record& record, int flags = 0) const {
        send(std::as_bytes(std::span(&record, 1)), flags);
    }
    template <typename Record>
    Record receive_record() const {
        Record record{};
        receive(std::as_writable_bytes(std::span(&record, 1)));
        return record;
    }

  private:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}

    int descriptor_ = -1;
};
