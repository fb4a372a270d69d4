#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "aes_ecb/aes_ecb.h"
#include "client/connection.h"
#include "client/detail/batch_run.h"
#include "client/error.h"
#include "src/message/records.h"

namespace transmit::detail {

// The stream of DataResponse records that answers download_file_data, read in big pieces: as much
// as the socket gives at once and the batch's rate allows, with the data left where it was
// received.
class DataStream {
  public:
    // `connection` and `run` must outlive the stream. At most `expected` bytes of file data may
    // come.
    DataStream(Connection& connection, const BatchRun& run, std::int64_t expected);

    // The next pieces of the plain file, in order; they stay valid until the next call. No pieces:
    // the stream has ended well. More bytes than expected are file_changed. After an error of kind
    // refused the connection is usable.
    Result<std::span<const iovec>> next();

  private:
    enum class Step { done, starved };

    Result<Step> take_header();
    Result<Step> take_plain();
    Result<Step> take_cipher();
    Result<void> gather();
    Result<void> refill();
    Error broken(const char* text);
    Result<void> count(std::size_t size);

    std::size_t buffered() const { return end_ - begin_; }

    Connection& connection_;
    const BatchRun& run_;
    const bool encrypted_;
    std::size_t capacity_;
    std::int64_t left_;  // bytes of the file that may still come
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint32_t frame_left_ = 0;  // bytes of the current tail that are still to be taken
    std::vector<iovec> pieces_;
    ByteArray plain_;
    std::optional<std::uint16_t> final_status_;
};

}  // namespace transmit::detail
