#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <span>

#include "client/detail/file_descriptor.h"
#include "client/error.h"
#include "client/remote.h"
#include "client/wait_limits.h"

namespace transmit::detail {

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
    // What is there, at least one byte and at most `size`; the stream's end is connection_lost.
    Result<std::size_t> receive_some(void* data, std::size_t size);

    // True if a receive would not wait, because of bytes, the stream's end or a broken connection.
    bool readable() const;
    bool cancelled() const { return limits_.cancelled && limits_.cancelled(); }

    bool is_open() const { return descriptor_.is_open(); }
    void close() { descriptor_.close(); }

  private:
    Socket(FileDescriptor descriptor, WaitLimits limits)
        : descriptor_(std::move(descriptor)), limits_(std::move(limits)) {}

    std::chrono::milliseconds patience_of_receive() const;

    FileDescriptor descriptor_;
    WaitLimits limits_;
    bool heard_ = false;  // the peer has sent a byte
};

}  // namespace transmit::detail
