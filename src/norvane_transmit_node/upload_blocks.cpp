#include "src/norvane_transmit_node/upload_blocks.h"

#include <cstring>

#include "src/message/catalogue.h"

using Header = message::UploadFileData::Request;

UploadBlocks UploadBlocks::in(std::span<const std::uint8_t> received) {
    UploadBlocks found;
    while (found.count_ < found.blocks_.size() && received.size() >= sizeof(Header)) {
        Header header{};
        std::memcpy(&header, received.data(), sizeof header);
        message::to_host_order(header);
        const auto tail = received.subspan(sizeof header);
        if (header.type != message::UploadFileData::type || tail.size() < header.data_length) {
            break;
        }
        found.blocks_[found.count_++] = tail.first(header.data_length);
        received = tail.subspan(header.data_length);
    }
    return found;
}

std::uint64_t UploadBlocks::length_of(std::span<const Block> blocks) {
    std::uint64_t length = 0;
    for (const Block& block : blocks) {
        length += block.size();
    }
    return length;
}

std::uint64_t UploadBlocks::length_on_wire(std::span<const Block> blocks) {
    return blocks.size() * sizeof(Header) + length_of(blocks);
}
