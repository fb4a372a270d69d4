#include "client/detail/upload_sender.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "src/message/payload_key.h"

namespace transmit::detail {
namespace {

// File data per message: the server takes it while it is in its cache. Measured, messages of 256
// KiB cost the server twice as much.
constexpr std::size_t block_size = 64UL * 1024;
// File data per read and send: large enough that system calls don't count.
constexpr std::size_t batch_size = most_blocks * block_size;
// Data is copied fastest from the start of a page.
constexpr std::size_t page_size = 4096;
constexpr auto payload_key = message::make_payload_key();

// Each block is one cipher text, which takes its place.
bool encipher(iovec& block, ByteArray& cipher) {
    if (!aes_ecb_encrypt_data(payload_key.data(), payload_key.size(),
                              static_cast<const std::uint8_t*>(block.iov_base), block.iov_len,
                              cipher)) {
        return false;
    }
    block = {cipher.data(), cipher.size()};
    return true;
}

}  // namespace

void UploadSender::Free::operator()(void* memory) const {
    std::free(memory);
}

Result<void> UploadSender::send(Connection& connection, const SourceFile& source,
                                std::int64_t offset, FileWatch& watch) {
    auto sent = send_all(connection, source, offset, watch);
    if (sent) {
        sent = source.unchanged();
    }
    if (!sent) {
        // Answers may be under way that nobody counts.
        connection.close();
    }
    return sent;
}

Result<void> UploadSender::send_all(Connection& connection, const SourceFile& source,
                                    std::int64_t offset, FileWatch& watch) {
    const std::int64_t end = source.stamp().size;
    while (offset < end) {
        const std::size_t size =
            run_.step(static_cast<std::size_t>(std::min<std::int64_t>(batch_size, end - offset)));
        const auto blocks = read_blocks(source, offset, size);
        if (!blocks) {
            return blocks.error();
        }
        if (auto turn = run_.wait_for_turn(size); !turn) {
            return turn;
        }
        if (connection.cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        if (auto sent = connection.upload_file_data(*blocks); !sent) {
            return sent;
        }
        if (auto failed = connection.upload_failure(); !failed) {
            return failed;
        }
        offset += static_cast<std::int64_t>(size);
        watch.moved(size);
    }
    return {};
}

Result<std::span<const iovec>> UploadSender::blocks_of(const SourceFile& source) {
    auto blocks = read_blocks(source, 0, static_cast<std::size_t>(source.stamp().size));
    if (!blocks) {
        return blocks;
    }
    if (const auto same = source.unchanged(); !same) {
        return same.error();
    }
    return blocks;
}

Result<std::span<const iovec>> UploadSender::read_blocks(const SourceFile& source,
                                                         std::int64_t offset, std::size_t size) {
    if (!memory_) {
        memory_.reset(static_cast<std::uint8_t*>(std::aligned_alloc(page_size, batch_size)));
        if (!memory_) {
            throw std::bad_alloc();
        }
    }
    if (auto read = source.read(memory_.get(), size, offset); !read) {
        return read.error();
    }
    std::size_t count = 0;
    for (std::size_t start = 0; start < size; start += block_size, ++count) {
        blocks_[count] = {memory_.get() + start, std::min(block_size, size - start)};
        if (run_.options().encrypted && !encipher(blocks_[count], ciphers_[count])) {
            return Error{ErrorKind::local_file, 0, "a block can't be enciphered"};
        }
    }
    return std::span<const iovec>(blocks_).first(count);
}

}  // namespace transmit::detail
