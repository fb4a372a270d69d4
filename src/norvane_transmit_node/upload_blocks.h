#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "src/tcp_event/upload_file_tcp_event.h"

// The file data of the whole upload_file_data messages at the front of received bytes, where it
// lies: a run of them costs one write.
class UploadBlocks {
  public:
    using Block = UploadFileTcpEvent::Block;

    // Empty if not even the first message stands there whole.
    static UploadBlocks in(std::span<const std::uint8_t> received);

    std::span<const Block> all() const { return std::span(blocks_).first(count_); }

    // Of the file data, and of the messages that it came in.
    static std::uint64_t length_of(std::span<const Block> blocks);
    static std::uint64_t length_on_wire(std::span<const Block> blocks);

  private:
    std::array<Block, Kestin::Base::File::most_pieces> blocks_;
    std::size_t count_ = 0;
};
