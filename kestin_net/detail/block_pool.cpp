#include "kestin_net/detail/block_pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace Kestin::Net::detail {
namespace {

std::byte* as_bytes(void* mapping) {
    return mapping == MAP_FAILED ? nullptr : static_cast<std::byte*>(mapping);
}

}  // namespace

std::byte* allocate_pages(std::size_t size) {
    return as_bytes(
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KESTIN_NET_COPIES_PAGES
#endif
#endif

#ifdef KESTIN_NET_COPIES_PAGES
// The thread sanitizer doesn't see mremap(2): it takes moved pages for those that other threads had
// at the same address.
std::byte* resize_pages(std::byte* pages, std::size_t old_size, std::size_t new_size) {
    std::byte* resized = allocate_pages(new_size);
    if (resized != nullptr) {
        std::memcpy(resized, pages, std::min(old_size, new_size));
        release_pages(pages, old_size);
    }
    return resized;
}
#else
std::byte* resize_pages(std::byte* pages, std::size_t old_size, std::size_t new_size) {
    return as_bytes(::mremap(pages, old_size, new_size, MREMAP_MAYMOVE));
}
#endif

void release_pages(std::byte* pages, std::size_t size) {
    ::munmap(pages, size);
}

BlockPool::BlockPool(std::size_t block_size, std::size_t most_idle)
    : block_size_(block_size), most_idle_(most_idle) {
}

BlockPool::~BlockPool() {
    while (Idle* block = take_idle()) {
        release_pages(reinterpret_cast<std::byte*>(block), block_size_);
    }
}

std::byte* BlockPool::acquire() {
    Idle* block = take_idle();
    return block != nullptr ? reinterpret_cast<std::byte*>(block) : allocate_pages(block_size_);
}

void BlockPool::release(std::byte* block) {
    if (!keep_idle(block)) {
        release_pages(block, block_size_);
    }
}

BlockPool::Idle* BlockPool::take_idle() {
    const MutexGuard guard(mutex_);
    Idle* block = idle_;
    if (block != nullptr) {
        idle_ = block->next;
        --idle_count_;
    }
    return block;
}

bool BlockPool::keep_idle(std::byte* block) {
    const MutexGuard guard(mutex_);
    if (idle_count_ == most_idle_) {
        return false;
    }
    idle_ = new (block) Idle{idle_};
    ++idle_count_;
    return true;
}

}  // namespace Kestin::Net::detail
