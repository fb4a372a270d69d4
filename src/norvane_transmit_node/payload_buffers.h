#pragma once

#include <array>

#include "aes_ecb/aes_ecb.h"
#include "src/message/payload_key.h"

// Memory for the file data of the message at hand, one set a thread: a block costs no allocation,
// and its bytes are still in the cache when they are deciphered or written.
struct PayloadBuffers {
    // File data asked of a file at a time.
    static constexpr std::uint32_t chunk_size = 65536;
    // What a thread keeps of a buffer from one message to the next.
    static constexpr std::size_t kept_size = std::size_t{1} << 20;

    static PayloadBuffers& of_this_thread() {
        static thread_local PayloadBuffers buffers;
        return buffers;
    }

    void give_back_large() {
        for (ByteArray* buffer : {&received.front(), &ciphered}) {
            if (buffer->capacity() > kept_size) {
                *buffer = ByteArray();
            }
        }
    }

    std::array<ByteArray, 1> received;
    ByteArray ciphered;
    alignas(64) std::array<char, chunk_size> chunk;
};
