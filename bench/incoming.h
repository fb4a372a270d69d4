#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>

#include "bench/socket.h"
#include "src/message/wire.h"

namespace bench {

// What has been received and not yet taken apart, in one page-aligned buffer that is read into
// again and again. The bytes of a call stay valid until the next.
class Incoming {
  public:
    explicit Incoming(const Socket& socket) : socket_(socket) {}

    // Bytes that are there already.
    std::size_t waiting() const { return end_ - begin_; }

    // What comes next, as one piece of at least `length` bytes; `length` is at most half a MiB.
    std::span<const std::byte> at_least(std::size_t length) {
        if (waiting() < length) {
            std::memmove(buffer_->bytes, buffer_->bytes + begin_, waiting());
            end_ -= begin_;
            begin_ = 0;
        }
        while (waiting() < length) {
            const std::size_t got = socket_.receive_some(std::span(buffer_->bytes).subspan(end_));
            if (got == 0) {
                throw std::runtime_error("the peer closed the connection");
            }
            end_ += got;
        }
        return std::span(buffer_->bytes).subspan(begin_, waiting());
    }

    void drop(std::size_t length) { begin_ += length; }

    // Drops bytes that may not have come yet.
    void discard(std::size_t length) {
        const std::size_t here = std::min(length, waiting());
        drop(here);
        socket_.discard(length - here);
    }

    // Copies a record without taking it; then taking it.
    template <typename Record>
    Record peek() {
        Record record{};
        std::memcpy(&record, at_least(sizeof record).data(), sizeof record);
        message::to_host_order(record);
        return record;
    }
    template <typename Record>
    Record take() {
        const auto record = peek<Record>();
        drop(sizeof record);
        return record;
    }

  private:
    struct Buffer {
        alignas(4096) std::byte bytes[1 << 20];
    };

    const Socket& socket_;
    // Not zeroed: a connection that receives little touches little of it.
    std::unique_ptr<Buffer> buffer_ = std::make_unique_for_overwrite<Buffer>();
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

}  // namespace bench
