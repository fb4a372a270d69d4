#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "kestin_net/detail/buffer_memory.h"
#include "kestin_net/detail/memory_account.h"

namespace Kestin::Net::detail {

// One whole frame must fit: a tail of 64 MiB, its header, and some bytes of the next.
inline constexpr std::uint64_t receive_limit = 64 * mebibyte + 64 * kibibyte;

// Read at a time at most: beyond the size of most frames, and still within the processor's cache.
inline constexpr std::size_t read_size = 256 * kibibyte;

// What each connection may hold whatever the others hold: a frame of 64 KiB with its header and
// cipher padding. More is taken from the memory budget.
inline constexpr std::size_t receive_floor = 68 * kibibyte;

// The bytes that came and wait for the service, in one piece. One owner at a time.
//
//     data_        begin_             end_              capacity_
//     |   removed  |   what waits     |   room to read  |
//
// Memory is held only while bytes wait: in a turn a block of the pool, or pages when a frame is
// larger; between turns, for a few bytes, as little as they need.
class ReceiveBuffer {
  public:
    ReceiveBuffer(BufferMemory& memory, MemoryAccount& account)
        : memory_(memory), account_(account) {}
    ~ReceiveBuffer();
    ReceiveBuffer(const ReceiveBuffer&) = delete;
    ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;

    std::uint64_t size() const { return end_ - begin_; }
    bool is_empty() const { return begin_ == end_; }
    bool is_full() const { return size() == receive_limit; }

    // All bytes ever removed.
    std::uint64_t removed() const { return removed_; }

    // Where the next bytes go; what was written there is then committed. Empty if the buffer is
    // full, or if more memory can't be had at this moment.
    std::span<std::byte> room();
    // As `room`, for the last bytes of a peer: they may use the memory budget's reserve.
    std::span<std::byte> last_room();
    void commit(std::uint64_t length) { end_ += length; }

    // False, with nothing changed, if fewer than `length` bytes wait.
    bool copy(void* destination, std::uint64_t length) const;
    // The first `length` bytes where they lie, or null.
    const std::byte* front(std::uint64_t length) const {
        return length <= size() ? data_ + begin_ : nullptr;
    }
    bool drop(std::uint64_t length);

    // Gives back the memory that is out of proportion to what waits.
    void settle();

    // Drops what waits and gives back all memory.
    void clear();

  private:
    void make_room();
    void compact();
    bool move_to(std::size_t capacity, bool may_use_reserve = false);
    std::byte* relocate(std::size_t capacity);
    std::byte* allocate(std::size_t capacity);
    void release();

    BufferMemory& memory_;
    MemoryAccount& account_;
    std::byte* data_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint64_t removed_ = 0;
};

}  // namespace Kestin::Net::detail
