#include "client/upload.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "aes_ecb/aes_ecb.h"
#include "client/detail/source_file.h"
#include "src/message/payload_key.h"

namespace transmit {
namespace {

// File data per message: the server takes it while it is in its cache. Measured, messages of 256
// KiB cost the server twice as much.
constexpr std::size_t block_size = 64UL * 1024;
// File data per read and send: large enough that system calls don't count.
constexpr std::size_t batch_size = most_blocks * block_size;
constexpr std::size_t page_size = 4096;
constexpr auto payload_key = message::make_payload_key();

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

// The memory that all data passes through: one for all of a file, aligned for fast copies.
std::unique_ptr<std::uint8_t, Free> make_batch(std::int64_t file_size) {
    const auto wanted = std::min<std::uint64_t>(batch_size, static_cast<std::uint64_t>(file_size));
    void* const memory = std::aligned_alloc(page_size, (wanted / page_size + 1) * page_size);
    if (!memory) {
        throw std::bad_alloc();
    }
    return std::unique_ptr<std::uint8_t, Free>(static_cast<std::uint8_t*>(memory));
}

// One upload, over as many attempts as it takes.
class UploadConversation {
  public:
    UploadConversation(const Upload& upload, const detail::SourceFile& source,
                       RetryingConnection& server, const ProgressCallback& progress)
        : upload_(upload),
          source_(source),
          server_(server),
          progress_(progress),
          batch_(make_batch(source.stamp().size)) {}

    Result<TransferReport> attempt(Connection& connection) {
        const auto start =
            connection.upload_file_prepare(upload_.target, source_.stamp(), upload_.encrypted);
        if (!start) {
            return start.error();
        }
        note_start(start->complete ? source_.stamp().size : start->offset);
        if (start->complete) {
            return report(!attempted_);
        }
        attempted_ = true;
        if (auto sent = send_from(connection, start->offset); !sent) {
            return sent.error();
        }
        if (auto finished = connection.upload_file_finish(); !finished) {
            return finished.error();
        }
        return report(false);
    }

  private:
    // What was there before this run, and what later attempts find, is counted once.
    void note_start(std::int64_t offset) {
        if (!attempted_) {
            resumed_from_ = furthest_ = offset;
        }
        tell(offset);
    }

    Result<void> send_from(Connection& connection, std::int64_t offset) {
        while (offset < source_.stamp().size) {
            const auto size = static_cast<std::size_t>(
                std::min<std::int64_t>(batch_size, source_.stamp().size - offset));
            if (auto sent = send_batch(connection, offset, size); !sent) {
                return abandon(connection, sent.error());
            }
            offset += static_cast<std::int64_t>(size);
            tell(offset);
        }
        if (auto same = source_.unchanged(); !same) {
            return abandon(connection, same.error());
        }
        return {};
    }

    Result<void> send_batch(Connection& connection, std::int64_t offset, std::size_t size) {
        if (connection.cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        if (auto read = source_.read(batch_.get(), size, offset); !read) {
            return read;
        }
        std::array<iovec, most_blocks> blocks;
        std::size_t count = 0;
        for (std::size_t start = 0; start < size; start += block_size, ++count) {
            blocks[count] = {batch_.get() + start, std::min(block_size, size - start)};
            if (upload_.encrypted && !encipher(blocks[count], ciphers_[count])) {
                return Error{ErrorKind::local_file, 0, "a block can't be enciphered"};
            }
        }
        if (auto sent = connection.upload_file_data(std::span(blocks).first(count)); !sent) {
            return sent;
        }
        return connection.upload_failure();
    }

    // Each block is one cipher text, which takes its place.
    static bool encipher(iovec& block, ByteArray& cipher) {
        if (!aes_ecb_encrypt_data(payload_key.data(), payload_key.size(),
                                  static_cast<const std::uint8_t*>(block.iov_base), block.iov_len,
                                  cipher)) {
            return false;
        }
        block = {cipher.data(), cipher.size()};
        return true;
    }

    // An upload that stops halfway leaves answers under way that nobody counts: the connection's
    // end tells the server to keep what it has.
    Result<void> abandon(Connection& connection, Error error) {
        connection.close();
        return error;
    }

    void tell(std::int64_t done) {
        if (done > furthest_) {
            furthest_ = done;
            server_.progressed();
        }
        if (progress_) {
            progress_({done, source_.stamp().size, resumed_from_});
        }
    }

    TransferReport report(bool already_there) const {
        return {source_.stamp().size, resumed_from_, already_there};
    }

    const Upload& upload_;
    const detail::SourceFile& source_;
    RetryingConnection& server_;
    const ProgressCallback& progress_;
    std::unique_ptr<std::uint8_t, Free> batch_;
    std::array<ByteArray, most_blocks> ciphers_;
    std::int64_t resumed_from_ = 0;
    std::int64_t furthest_ = 0;
    bool attempted_ = false;
};

}  // namespace

Result<TransferReport> upload_file(RetryingConnection& server, const Upload& upload,
                                   const ProgressCallback& progress) {
    const auto source = detail::SourceFile::open(upload.local_path);
    if (!source) {
        return source.error();
    }
    UploadConversation conversation(upload, *source, server, progress);
    return server.run([&](Connection& connection) { return conversation.attempt(connection); });
}

}  // namespace transmit
