#include "client/detail/remote_file.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "client/detail/data_stream.h"
#include "client/detail/sha256.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

constexpr std::int64_t tail_size = 64L * 1024;

Result<void> drain(Connection& connection, const BatchRun& run, std::int64_t expected,
                   const Consumer& consume) {
    DataStream stream(connection, run, expected);
    while (true) {
        const auto pieces = stream.next();
        if (!pieces) {
            return pieces.error();
        }
        if (pieces->empty()) {
            return connection.download_file_finish();
        }
        if (auto consumed = consume(*pieces); !consumed) {
            connection.close();
            return consumed;
        }
    }
}

// Compares what comes with the source, piece by piece.
class Comparison {
  public:
    Comparison(const SourceFile& source, std::int64_t offset) : source_(source), offset_(offset) {}

    Result<void> add(std::span<const iovec> pieces) {
        for (const iovec& piece : pieces) {
            expected_.resize(piece.iov_len);
            if (same_) {
                if (auto read = source_.read(expected_.data(), piece.iov_len, offset_); !read) {
                    return read;
                }
                same_ = std::memcmp(expected_.data(), piece.iov_base, piece.iov_len) == 0;
            }
            offset_ += static_cast<std::int64_t>(piece.iov_len);
        }
        return {};
    }

    bool same_up_to(std::int64_t end) const { return same_ && offset_ == end; }

  private:
    const SourceFile& source_;
    std::int64_t offset_;
    std::vector<char> expected_;
    bool same_ = true;
};

}  // namespace

Result<FileStamp> read_remote(Connection& connection, const BatchRun& run, const RemotePath& file,
                              std::int64_t offset, const Consumer& consume) {
    auto stamp = connection.download_file_prepare(file, run.options().encrypted);
    if (!stamp) {
        return stamp;
    }
    if (auto asked = connection.download_file_data(offset); !asked) {
        return asked.error();
    }
    if (auto drained = drain(connection, run, stamp->size - offset, consume); !drained) {
        return drained.error();
    }
    return stamp;
}

Result<std::string> remote_sha256(Connection& connection, const BatchRun& run,
                                  const RemotePath& file) {
    Sha256 hash;
    const auto stamp =
        read_remote(connection, run, file, 0, [&](std::span<const iovec> pieces) -> Result<void> {
            hash.add(pieces);
            return {};
        });
    return stamp ? Result<std::string>(hash.digest()) : stamp.error();
}

Result<bool> begins_like(Connection& connection, const BatchRun& run, const RemotePath& file,
                         std::int64_t size, const SourceFile& source) {
    const std::int64_t start = check_start(run.options(), 0, size);
    Comparison comparison(source, start);
    const auto stamp =
        read_remote(connection, run, file, start,
                    [&](std::span<const iovec> pieces) { return comparison.add(pieces); });
    if (!stamp && stamp.error().status == message::status_access_failed) {
        return false;
    }
    // The upload that writes it has not ended, be it our own on a connection that broke.
    if (!stamp && stamp.error().kind == ErrorKind::file_changed && source.unchanged()) {
        return refusal(message::status_file_in_use);
    }
    if (!stamp) {
        return stamp.error();
    }
    return stamp->size == size && comparison.same_up_to(size);
}

std::int64_t check_start(const TransferOptions& options, std::int64_t begin, std::int64_t end) {
    return options.check == ResumeCheck::all ? begin : std::max(begin, end - tail_size);
}

}  // namespace transmit::detail
