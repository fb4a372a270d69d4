#include "client/upload.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "aes_ecb/aes_ecb.h"
#include "client/detail/source_file.h"
#include "src/message/payload_key.h"

namespace transmit {
namespace {

// File data per message: large enough that system calls don't count, small enough to stay in the
// cache between the read and the send.
constexpr std::int64_t block_size = 256 * 1024;
constexpr std::size_t page_size = 4096;
constexpr auto payload_key = message::make_payload_key();

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

// The memory that each block passes through: one for all of a file, aligned for fast copies.
std::unique_ptr<void, Free> make_block(std::int64_t file_size) {
    const auto wanted = static_cast<std::size_t>(std::min(block_size, file_size));
    const std::size_t pages = wanted / page_size + 1;
    std::unique_ptr<void, Free> block(std::aligned_alloc(page_size, pages * page_size));
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
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
          block_(make_block(source.stamp().size)) {}

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
            const auto size = std::min(block_size, source_.stamp().size - offset);
            if (auto sent = send_block(connection, offset, static_cast<std::size_t>(size)); !sent) {
                return abandon(connection, sent.error());
            }
            offset += size;
            tell(offset);
        }
        if (auto same = source_.unchanged(); !same) {
            return abandon(connection, same.error());
        }
        return {};
    }

    Result<void> send_block(Connection& connection, std::int64_t offset, std::size_t size) {
        if (connection.cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        if (auto read = source_.read(block_.get(), size, offset); !read) {
            return read;
        }
        if (auto sent = send_payload(connection, size); !sent) {
            return sent;
        }
        return connection.upload_failure();
    }

    Result<void> send_payload(Connection& connection, std::size_t size) {
        if (!upload_.encrypted) {
            return connection.upload_file_data(block_.get(), static_cast<std::uint32_t>(size));
        }
        if (!aes_ecb_encrypt_data(payload_key.data(), payload_key.size(),
                                  static_cast<const std::uint8_t*>(block_.get()), size, cipher_)) {
            return Error{ErrorKind::local_file, 0, "a block can't be enciphered"};
        }
        return connection.upload_file_data(cipher_.data(),
                                           static_cast<std::uint32_t>(cipher_.size()));
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
    std::unique_ptr<void, Free> block_;
    ByteArray cipher_;
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
