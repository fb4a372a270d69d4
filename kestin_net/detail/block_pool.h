#pragma once

#include <cstddef>

#include "kestin_net/detail/mutex.h"

namespace Kestin::Net::detail {

// Whole pages straight from the system: what is released is the system's again at once, and no
// other allocation keeps it resident. Null: out of memory.
std::byte* allocate_pages(std::size_t size);
std::byte* resize_pages(std::byte* pages, std::size_t old_size, std::size_t new_size);
void release_pages(std::byte* pages, std::size_t size);

// Blocks of one size, page-aligned, not zeroed. The block released last is given out first, while
// the caches still hold it. Callable from every thread.
class BlockPool {
  public:
    // At most `most_idle` released blocks are kept; the system gets the others back.
    BlockPool(std::size_t block_size, std::size_t most_idle);
    ~BlockPool();
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    // Null: out of memory.
    std::byte* acquire();
    void release(std::byte* block);

  private:
    struct Idle {
        Idle* next;
    };

    Idle* take_idle();
    bool keep_idle(std::byte* block);

    const std::size_t block_size_;
    const std::size_t most_idle_;
    Mutex mutex_;
    Idle* idle_ KESTIN_NET_GUARDED_BY(mutex_) = nullptr;
    std::size_t idle_count_ KESTIN_NET_GUARDED_BY(mutex_) = 0;
};

}  // namespace Kestin::Net::detail
