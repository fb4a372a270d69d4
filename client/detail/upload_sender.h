#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "aes_ecb/aes_ecb.h"
#include "client/connection.h"
#include "client/detail/file_watch.h"
#include "client/detail/source_file.h"
#include "client/error.h"

namespace transmit::detail {

// Sends the data of uploads, one after the other, through memory that it keeps.
class UploadSender {
  public:
    explicit UploadSender(const BatchRun& run) : run_(run) {}

    // From `offset` to the source's end; a source that changed meanwhile is file_changed. A block
    // that the server couldn't take is its refusal, as soon as it has arrived. After an error the
    // connection is closed, which tells the server to keep what it has.
    Result<void> send(Connection& connection, const SourceFile& source, std::int64_t offset,
                      FileWatch& watch);

    // A whole small file in memory as blocks for upload_file_data, valid until the next call.
    Result<std::span<const iovec>> blocks_of(const SourceFile& source);

    // The largest small file.
    static constexpr std::int64_t small_size = 256L * 1024;

  private:
    struct Free {
        void operator()(void* memory) const;
    };

    Result<std::span<const iovec>> read_blocks(const SourceFile& source, std::int64_t offset,
                                               std::size_t size);
    Result<void> send_all(Connection& connection, const SourceFile& source, std::int64_t offset,
                          FileWatch& watch);

    const BatchRun& run_;
    std::unique_ptr<std::uint8_t, Free> memory_;
    std::array<ByteArray, most_blocks> ciphers_;
    std::array<iovec, most_blocks> blocks_;
};

}  // namespace transmit::detail
