#include "kestin_net/detail/send_chain.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Kestin::Net::detail {
namespace {

// Given to one system call at most: a turn's worth.
constexpr std::uint64_t largest_shared_piece = mebibyte;

}  // namespace

SendChain::~SendChain() {
    clear();
}

bool SendChain::append(const void* data, std::uint64_t length) {
    Block* block = last_;
    if (!fits(length) || !extend(length)) {
        return false;
    }
    block = block != nullptr ? block : first_;
    const auto* from = static_cast<const std::byte*>(data);
    for (std::uint64_t left = length; left > 0; block = block->next) {
        const std::uint64_t part = std::min<std::uint64_t>(left, block->room());
        std::memcpy(block->data + block->end, from, part);
        block->end += part;
        from += part;
        left -= part;
    }
    size_ += length;
    appended_ += length;
    return true;
}

std::byte* SendChain::room(std::uint64_t length) {
    const bool has_block = last_ != nullptr && last_->room() >= length;
    if (length > sizeof Block::data || !fits(length) || !(has_block || add_block())) {
        return nullptr;
    }
    return last_->data + last_->end;
}

void SendChain::commit(std::uint64_t length) {
    last_->end += length;
    size_ += length;
    appended_ += length;
}

bool SendChain::append_file(std::span<const std::byte> head, Descriptor file, std::uint64_t size) {
    if (!append(head.data(), head.size())) {
        return false;
    }
    if (size > 0) {
        file_ = {.file = std::move(file), .position = 0, .length = size};
        size_ += size;
        appended_ += size;
    }
    return true;
}

// A small body is cheaper to copy than to share.
bool SendChain::append_shared(std::span<const std::byte> head,
                              std::shared_ptr<const std::string> body) {
    constexpr std::size_t largest_copy = 64 * kibibyte;
    if (!fits(head.size() + body->size())) {
        return false;
    }
    if (body->size() <= largest_copy) {
        const std::string whole =
            std::string(reinterpret_cast<const char*>(head.data()), head.size()) + *body;
        return append(whole.data(), whole.size());
    }
    body = memory_.shared_bodies.hold(body);
    if (body == nullptr || !append(head.data(), head.size())) {
        return false;
    }
    account_.hold(body->size());
    size_ += body->size();
    appended_ += body->size();
    shared_ = {.body = std::move(body)};
    return true;
}

std::span<iovec> SendChain::front(std::span<iovec> slots) const {
    std::size_t used = 0;
    Block* block = first_;
    for (; block != nullptr && used < slots.size(); block = block->next) {
        slots[used++] = {block->data + block->begin, block->end - block->begin};
    }
    if (block == nullptr && used < slots.size() && shared_.length() > 0) {
        // sendmsg(2) only reads it.
        char* const rest = const_cast<char*>(shared_.body->data()) + shared_.position;
        slots[used++] = {rest, std::min(shared_.length(), largest_shared_piece)};
    }
    return slots.first(used);
}

void SendChain::drop_front(std::uint64_t length) {
    size_ -= length;
    while (length > 0 && first_ != nullptr) {
        const std::uint64_t part = std::min<std::uint64_t>(length, first_->end - first_->begin);
        first_->begin += part;
        length -= part;
        if (first_->begin == first_->end) {
            remove_first();
        }
    }
    if (length > 0) {
        drop_of_shared(length);
    }
}

void SendChain::clear() {
    remove_behind(nullptr);
    size_ = 0;
    file_ = {};
    shared_ = {};
}

void SendChain::drop_of_shared(std::uint64_t length) {
    shared_.position += length;
    if (shared_.length() == 0) {
        account_.let_go(shared_.body->size());
        shared_ = {};
    }
}

void SendChain::drop_of_file(std::uint64_t length) {
    size_ -= length;
    file_.position += static_cast<off_t>(length);
    file_.length -= length;
    if (file_.length == 0) {
        file_ = {};
    }
}

bool SendChain::fits(std::uint64_t length) const {
    if (ends_with_range()) {
        return false;
    }
    return (length <= send_limit && size_ <= send_limit - length) ||
           (length <= send_piece_limit && size_ <= 2 * send_mark);
}

// Makes the room at the chain's end at least `length`, or leaves the chain as it was.
bool SendChain::extend(std::uint64_t length) {
    Block* const old_last = last_;
    std::uint64_t room = last_ != nullptr ? last_->room() : 0;
    for (; room < length; room += sizeof Block::data) {
        if (!add_block()) {
            remove_behind(old_last);
            return false;
        }
    }
    return true;
}

bool SendChain::add_block() {
    const std::uint64_t charge = block_count_ >= send_floor ? send_block_charge : 0;
    if (charge > 0 && !account_.take(charge)) {
        return false;
    }
    std::byte* memory = memory_.send_blocks.acquire();
    if (memory == nullptr) {
        account_.give_back(charge);
        return false;
    }
    auto* block = new (memory) Block;
    block->next = nullptr;
    block->begin = block->end = 0;
    (last_ == nullptr ? first_ : last_->next) = block;
    last_ = block;
    ++block_count_;
    return true;
}

void SendChain::remove_first() {
    Block* const block = first_;
    first_ = block->next;
    if (first_ == nullptr) {
        last_ = nullptr;
    }
    release(block);
}

void SendChain::remove_behind(Block* last) {
    Block*& link = last != nullptr ? last->next : first_;
    Block* block = std::exchange(link, nullptr);
    last_ = last;
    while (block != nullptr) {
        Block* const next = block->next;
        release(block);
        block = next;
    }
}

void SendChain::release(Block* block) {
    memory_.send_blocks.release(reinterpret_cast<std::byte*>(block));
    --block_count_;
    if (block_count_ >= send_floor) {
        account_.give_back(send_block_charge);
    }
}

}  // namespace Kestin::Net::detail
