#include "client/detail/data_stream.h"

#include <algorithm>
#include <cstring>

#include "client/status_text.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

// Received at once: large enough that system calls don't count, small enough to stay in the cache
// until the data is written.
constexpr std::int64_t largest_buffer = 512L * 1024;
// Room for an enciphered block of 64 KiB with its padding and header, whatever is expected.
constexpr std::int64_t smallest_buffer = 72L * 1024;
// Pieces of one call, at most: writev takes 1024 (IOV_MAX).
constexpr std::size_t most_pieces = 1024;
constexpr auto payload_key = message::make_payload_key();

}  // namespace

DataStream::DataStream(Connection& connection, const BatchRun& run, std::int64_t expected)
    : connection_(connection),
      run_(run),
      encrypted_(run.options().encrypted),
      capacity_(static_cast<std::size_t>(std::clamp(expected, smallest_buffer, largest_buffer))),
      left_(expected),
      buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(capacity_)) {
}

Result<std::span<const iovec>> DataStream::next() {
    pieces_.clear();
    while (pieces_.empty() && !final_status_) {
        if (auto gathered = gather(); !gathered) {
            return gathered.error();
        }
        if (pieces_.empty() && !final_status_) {
            if (auto refilled = refill(); !refilled) {
                return refilled.error();
            }
        }
    }
    if (pieces_.empty() && *final_status_ != message::status_ok) {
        return refusal(*final_status_);
    }
    return std::span<const iovec>(pieces_);
}

// Takes what the buffer holds; enciphered blocks one at a time, since they share one output.
Result<void> DataStream::gather() {
    const std::size_t bound = encrypted_ ? 1 : most_pieces;
    while (pieces_.size() < bound && !final_status_) {
        const auto step = frame_left_ == 0 ? take_header()
                          : encrypted_     ? take_cipher()
                                           : take_plain();
        if (!step) {
            return step.error();
        }
        if (*step == Step::starved) {
            return {};
        }
    }
    return {};
}

Result<DataStream::Step> DataStream::take_header() {
    message::DataResponse header;
    if (buffered() < sizeof header) {
        return Step::starved;
    }
    std::memcpy(&header, buffer_.get() + begin_, sizeof header);
    begin_ += sizeof header;
    message::to_host_order(header);
    if (header.type != message::DownloadFileData::response_type) {
        return broken("the server sent something else between the blocks of a file");
    }
    frame_left_ = header.data_length;
    if (header.status != message::status_ok || header.data_length == 0) {
        final_status_ = header.status;
        if (header.data_length != 0 || buffered() != 0) {
            return broken("the server went on behind the end of a file");
        }
    }
    return Step::done;
}

Result<DataStream::Step> DataStream::take_plain() {
    if (buffered() == 0) {
        return Step::starved;
    }
    const std::size_t size = std::min<std::size_t>(frame_left_, buffered());
    if (auto counted = count(size); !counted) {
        return counted.error();
    }
    pieces_.push_back({buffer_.get() + begin_, size});
    begin_ += size;
    frame_left_ -= static_cast<std::uint32_t>(size);
    return Step::done;
}

Result<DataStream::Step> DataStream::take_cipher() {
    if (frame_left_ > capacity_) {
        return broken("the server sent an enciphered block that is too long");
    }
    if (buffered() < frame_left_) {
        return Step::starved;
    }
    if (!aes_ecb_decrypt_data(payload_key.data(), payload_key.size(), buffer_.get() + begin_,
                              frame_left_, plain_)) {
        return broken("a block of the server can't be deciphered");
    }
    if (plain_.empty()) {
        return broken("the server sent an enciphered block of nothing");
    }
    if (auto counted = count(plain_.size()); !counted) {
        return counted.error();
    }
    pieces_.push_back({plain_.data(), plain_.size()});
    begin_ += frame_left_;
    frame_left_ = 0;
    return Step::done;
}

// Whatever is left in the buffer is the beginning of a header or of an enciphered block.
Result<void> DataStream::refill() {
    std::memmove(buffer_.get(), buffer_.get() + begin_, buffered());
    end_ = buffered();
    begin_ = 0;
    const auto received =
        connection_.receive_some(buffer_.get() + end_, run_.step(capacity_ - end_));
    if (!received) {
        return received.error();
    }
    end_ += *received;
    return run_.wait_for_turn(*received);
}

Result<void> DataStream::count(std::size_t size) {
    left_ -= static_cast<std::int64_t>(size);
    if (left_ >= 0) {
        return {};
    }
    connection_.close();
    return Error{ErrorKind::file_changed, 0, "the source grew while it was fetched"};
}

Error DataStream::broken(const char* text) {
    connection_.close();
    return {ErrorKind::bad_answer, 0, text};
}

}  // namespace transmit::detail
