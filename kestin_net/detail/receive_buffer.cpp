#include "kestin_net/detail/receive_buffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace Kestin::Net::detail {
namespace {

// A read shorter than this isn't worth its system call; the buffer grows instead.
constexpr std::size_t least_room = 64 * kibibyte;

// What is left of a turn and larger than this stays in its block: the next turn brings more.
constexpr std::size_t small_rest = 16 * kibibyte;

std::uint64_t charge_of(std::size_t capacity) {
    return capacity > receive_floor ? capacity - receive_floor : 0;
}

}  // namespace

ReceiveBuffer::~ReceiveBuffer() {
    clear();
}

std::span<std::byte> ReceiveBuffer::room() {
    if (capacity_ - end_ < read_size) {
        make_room();
    }
    return {data_ + end_, std::min(read_size, capacity_ - end_)};
}

std::span<std::byte> ReceiveBuffer::last_room() {
    move_to(std::min<std::size_t>(capacity_ + read_size, receive_limit), true);
    return {data_ + end_, std::min(read_size, capacity_ - end_)};
}

bool ReceiveBuffer::copy(void* destination, std::uint64_t length) const {
    if (length > size()) {
        return false;
    }
    if (length > 0) {
        std::memcpy(destination, data_ + begin_, length);
    }
    return true;
}

bool ReceiveBuffer::drop(std::uint64_t length) {
    if (length > size()) {
        return false;
    }
    begin_ += length;
    removed_ += length;
    if (begin_ == end_) {
        begin_ = end_ = 0;
    }
    return true;
}

void ReceiveBuffer::settle() {
    if (is_empty()) {
        clear();
    } else if (size() <= small_rest) {
        if (capacity_ > small_rest) {
            move_to(size());
        }
    } else if (account_.is_short() && size() <= capacity_ / 2) {
        move_to(size());
    } else if (capacity_ > receive_block_size && size() <= receive_block_size - read_size) {
        move_to(receive_block_size);
    }
}

void ReceiveBuffer::clear() {
    release();
    account_.give_back(charge_of(capacity_));
    data_ = nullptr;
    capacity_ = begin_ = end_ = 0;
}

void ReceiveBuffer::make_room() {
    if (capacity_ < receive_block_size) {
        if (!move_to(receive_block_size) && capacity_ < receive_floor) {
            move_to(receive_floor);
        }
    }
    compact();
    if (capacity_ >= receive_block_size && capacity_ - end_ < least_room) {
        move_to(std::min<std::size_t>(2 * capacity_, receive_limit)) ||
            move_to(std::min<std::size_t>(capacity_ + read_size, receive_limit));
    }
}

void ReceiveBuffer::compact() {
    if (begin_ > 0) {
        std::memmove(data_, data_ + begin_, size());
        end_ -= begin_;
        begin_ = 0;
    }
}

// Moves what waits into memory of another size. False, with nothing changed, if the budget or the
// system refuses it.
bool ReceiveBuffer::move_to(std::size_t capacity, bool may_use_reserve) {
    const std::uint64_t old_charge = charge_of(capacity_);
    const std::uint64_t new_charge = charge_of(capacity);
    const std::uint64_t more = new_charge > old_charge ? new_charge - old_charge : 0;
    if (more > 0 && !(may_use_reserve ? account_.take(more) : account_.take_share(more))) {
        return false;
    }
    compact();
    std::byte* const data = relocate(capacity);
    if (data == nullptr) {
        account_.give_back(more);
        return false;
    }
    account_.give_back(old_charge + more - new_charge);
    data_ = data;
    capacity_ = capacity;
    return true;
}

// Pages are moved by the page table, without a copy.
std::byte* ReceiveBuffer::relocate(std::size_t capacity) {
    if (capacity_ > receive_block_size && capacity > receive_block_size) {
        return resize_pages(data_, capacity_, capacity);
    }
    std::byte* const data = allocate(capacity);
    if (data != nullptr && data_ != nullptr) {
        std::memcpy(data, data_, size());
        release();
    }
    return data;
}

std::byte* ReceiveBuffer::allocate(std::size_t capacity) {
    if (capacity > receive_block_size) {
        return allocate_pages(capacity);
    }
    if (capacity == receive_block_size) {
        return memory_.receive_blocks.acquire();
    }
    return static_cast<std::byte*>(std::malloc(capacity));
}

void ReceiveBuffer::release() {
    if (capacity_ > receive_block_size) {
        release_pages(data_, capacity_);
    } else if (capacity_ == receive_block_size) {
        memory_.receive_blocks.release(data_);
    } else {
        std::free(data_);
    }
}

}  // namespace Kestin::Net::detail
