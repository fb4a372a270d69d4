#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>

#include "client/detail/file_descriptor.h"
#include "client/error.h"
#include "client/remote.h"

namespace transmit {

// How long a peer may keep us waiting. `cancelled`, if set, is asked whenever a wait is interrupted
// by a signal, and at least five times a second while one lasts; true ends the wait. `stalled`, if
// set, is told once in each wait that lasts for `stall`.
struct WaitLimits {
    std::chrono::milliseconds connect{10'000};
    std::chrono::milliseconds silence{60'000};
    std::chrono::milliseconds stall{30'000};
    std::function<bool()> cancelled{};
    std::function<void()> stalled{};
};

// A TCP connection with blocking calls that give up after a while. Not for several threads at once.
// Raises no SIGPIPE. Errors are connection_lost, time_limit or cancelled; from connect also
// no_connection.
class Socket {
  public:
    static Result<Socket> connect(const Endpoint& endpoint, WaitLimits limits);

    // All of the parts, in order, as one stream; as a rule with one system call. Changes the parts.
    Result<void> send_all(std::span<iovec> parts);
    // Exactly `size` bytes; the stream's end before that is connection_lost.
    Result<void> receive_exactly(void* data, std::size_t size);
    // What is there, at least one byte and at most `size`; 0 is the end of the stream.
    Result<std::size_t> receive_some(void* data, std::size_t size);

    // True if a receive would not wait, because of bytes, the stream's end or a broken connection.
    bool readable() const;
    bool cancelled() const { return limits_.cancelled && limits_.cancelled(); }

    bool is_open() const { return descriptor_.is_open(); }
    void close() { descriptor_.close(); }

  private:
    Socket(detail::FileDescriptor descriptor, WaitLimits limits)
        : descriptor_(std::move(descriptor)), limits_(std::move(limits)) {}

    detail::FileDescriptor descriptor_;
    WaitLimits limits_;
};

}  // namespace transmit
