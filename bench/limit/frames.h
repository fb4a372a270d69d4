#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "bench/client.h"
#include "src/message/catalogue.h"
#include "src/message/status.h"

namespace bench {

// Page-aligned memory in which the first chunk's data begins at a cache line, with room for its
// header before it; chunks follow each other so that they go out as one.
struct Frames {
    static constexpr std::size_t chunk_size = chunk;
    static constexpr std::size_t header_size = sizeof(message::DataResponse);
    static constexpr std::size_t offset = 64 - header_size;
    // Chunks of one send.
    static constexpr std::size_t most = 4;

    alignas(4096) std::byte bytes[64 + most * (chunk_size + header_size)];
    std::size_t size = 0;

    static message::DataResponse header_of(std::size_t length) {
        message::DataResponse header{message::DownloadFileData::response_type, message::status_ok,
                                     static_cast<std::uint32_t>(length)};
        message::to_network_order(header);
        return header;
    }

    std::span<std::byte> room() {
        return std::span(bytes).subspan(offset + size + header_size, chunk_size);
    }
    void commit(std::size_t length) {
        const message::DataResponse header = header_of(length);
        std::memcpy(bytes + offset + size, &header, header_size);
        size += header_size + length;
    }
    std::span<const std::byte> filled() const { return std::span(bytes).subspan(offset, size); }
};

}  // namespace bench
