#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "kestin_net/detail/buffer_memory.h"
#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/memory_account.h"

namespace Kestin::Net::detail {

// What waits in a send buffer above this is more than the service is asked for, and more than a
// peer may leave unread before its further requests are held back: what waits should stay in the
// processor's cache.
inline constexpr std::uint64_t send_mark = 512 * kibibyte;

// What a service may append in one callback at most: 500 chunks of 64 KiB, each with an 8-byte
// header and 16 bytes of cipher padding.
inline constexpr std::uint64_t send_batch = 500 * (8 + 64 * kibibyte + 16);

// The bound of a chain: a batch on top of the mark, with room for the answers around it.
inline constexpr std::uint64_t send_limit = send_mark + send_batch + 64 * kibibyte;

// The bound of one single append on a chain that holds little (at most twice the mark): an answer
// that can't be told in pieces, such as a whole file.
inline constexpr std::uint64_t send_piece_limit = 256 * mebibyte;

// Blocks that each connection may have whatever the others have: a chunk of 64 KiB with its header
// and cipher padding fits. More are taken from the memory budget.
inline constexpr std::uint64_t send_floor = 2;

// What is left to send of an open file.
struct FileRange {
    Descriptor file;
    off_t position = 0;
    std::uint64_t length = 0;
};

// What is left to send of a body that several chains share.
struct SharedRange {
    std::shared_ptr<const std::string> body;
    std::uint64_t position = 0;

    std::uint64_t length() const { return body != nullptr ? body->size() - position : 0; }
};

// The bytes that wait for the socket: a chain of blocks, and behind them at most one range of a
// file, which takes no memory, or one shared body. One owner at a time.
class SendChain {
  public:
    SendChain(BufferMemory& memory, MemoryAccount& account) : memory_(memory), account_(account) {}
    ~SendChain();
    SendChain(const SendChain&) = delete;
    SendChain& operator=(const SendChain&) = delete;

    std::uint64_t size() const { return size_; }
    bool is_empty() const { return size_ == 0; }
    // Whether a stream should pause: at the mark, or with anything at all while memory is short.
    bool is_full() const { return size_ >= (account_.is_short() ? 1 : send_mark); }
    // Whether the peer must read before it is served further.
    bool holds_back() const {
        return size_ > (account_.is_short() ? 0 : send_mark) || ends_with_range();
    }
    // Whether what waits ends with a file or a shared body: nothing can be appended then.
    bool ends_with_range() const { return file() != nullptr || shared_.length() > 0; }

    // All bytes ever taken.
    std::uint64_t appended() const { return appended_; }

    // Copies all of the bytes behind what waits, or none of them and false: a bound above, the
    // memory, or a file or shared body that waits.
    bool append(const void* data, std::uint64_t length);

    // Contiguous bytes behind what waits, to be filled and then counted with `commit`, at most a
    // block's worth. Null: as `append`, and where that is false.
    std::byte* room(std::uint64_t length);
    void commit(std::uint64_t length);

    // As `append`, and the file's first `size` bytes behind that.
    bool append_file(std::span<const std::byte> head, Descriptor file, std::uint64_t size);

    // As `append`, and behind that the body by reference.
    bool append_shared(std::span<const std::byte> head, std::shared_ptr<const std::string> body);

    // Points `slots` at the front of the chain, piece by piece, and returns the slots in use.
    std::span<iovec> front(std::span<iovec> slots) const;
    void drop_front(std::uint64_t length);

    // Drops what waits and gives back all memory.
    void clear();

    // The file that waits behind the blocks, or null.
    const FileRange* file() const { return file_.length > 0 ? &file_ : nullptr; }
    bool starts_with_file() const { return first_ == nullptr && file_.length > 0; }
    void drop_of_file(std::uint64_t length);

  private:
    // The service's messages are an 8-byte header and, mostly, 64 KiB of a file: a block takes one
    // such message, and its file bytes begin on a cache line.
    struct Block {
        Block* next;
        std::size_t begin;
        std::size_t end;
        std::byte reserved[32];
        std::byte data[send_block_size - 56];

        std::size_t room() const { return sizeof data - end; }
    };

    bool fits(std::uint64_t length) const;
    bool extend(std::uint64_t length);
    bool add_block();
    void drop_of_shared(std::uint64_t length);
    void remove_first();
    void remove_behind(Block* last);
    void release(Block* block);

    BufferMemory& memory_;
    MemoryAccount& account_;
    Block* first_ = nullptr;
    Block* last_ = nullptr;
    std::uint64_t block_count_ = 0;
    std::uint64_t size_ = 0;
    std::uint64_t appended_ = 0;
    FileRange file_;
    SharedRange shared_;
};

}  // namespace Kestin::Net::detail
