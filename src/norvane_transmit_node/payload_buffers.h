#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "aes_ecb/aes_ecb.h"

// Memory for the file data of the message at hand, one set a thread: a block costs no allocation,
// and its bytes are still in the cache when they are converted or written.
struct PayloadBuffers {
    // File data asked of a file at a time.
    static constexpr std::uint32_t chunk_size = 65536;
    // What a thread keeps of a buffer from one message to the next.
    static constexpr std::size_t kept_size = std::size_t{1} << 20;

    static PayloadBuffers& of_this_thread() {
        static thread_local PayloadBuffers buffers;
        return buffers;
    }

    // The buffers of this thread during one message. Its end returns what is large.
    class Use {
      public:
        Use() = default;
        ~Use() {
            if (buffers_.converted.capacity() > kept_size) {
                buffers_.converted = ByteArray();
            }
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        PayloadBuffers* operator->() const { return &buffers_; }

      private:
        PayloadBuffers& buffers_ = of_this_thread();
    };

    // A block after the cipher, in either direction.
    ByteArray converted;
    alignas(64) std::array<char, chunk_size> chunk;
};
