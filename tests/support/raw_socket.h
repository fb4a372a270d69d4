#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace support {

// A TCP port of 127.0.0.1 on which nobody listens, in host order. It lies below the range that the
// system gives to outgoing connections, so that none of these takes it in the meantime. As long as
// this process lives, no other process gets the same one from here.
std::uint16_t free_port();

// `call`, ::bind or ::connect, with the address of 127.0.0.1 and a port in host order.
int with_loopback(int (*call)(int, const sockaddr*, socklen_t), int descriptor, std::uint16_t port);

// A TCP connection to 127.0.0.1 that sends and receives bytes as they are. Every wait ends at the
// time limit given to the constructor. One owner at a time.
class RawSocket {
  public:
    // Throws if nobody accepts.
    explicit RawSocket(std::uint16_t port,
                       std::chrono::milliseconds limit = std::chrono::minutes(1));
    ~RawSocket();
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    // False if the peer has gone or takes no more bytes within the limit.
    bool send(std::string_view bytes);

    // Exactly `size` bytes; fewer if the peer closed or the limit passed before.
    std::string receive(std::size_t size);

    // Everything up to the peer's end, or up to the limit.
    std::string receive_to_end();

    // Whether the peer closes, or resets, within the limit; bytes that come before are dropped.
    bool await_close();

    // No more bytes will be sent; the peer's are still received.
    void finish_sending();

    // Closes at once with a reset in place of an orderly end.
    void reset();

    std::uint16_t local_port() const;
    int descriptor() const { return descriptor_; }

  private:
    void close();

    int descriptor_;
};

}  // namespace support
