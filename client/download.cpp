#include "client/download.h"

#include <optional>

#include "client/detail/data_stream.h"
#include "client/detail/part_file.h"

namespace transmit {
namespace {

// One download, over as many attempts as it takes.
class DownloadConversation {
  public:
    DownloadConversation(const Download& download, RetryingConnection& server,
                         const ProgressCallback& progress)
        : download_(download), server_(server), progress_(progress) {}

    Result<TransferReport> attempt(Connection& connection) {
        const auto source = connection.download_file_prepare(download_.source, download_.encrypted);
        if (!source) {
            return source.error();
        }
        auto start = open_part(*source);
        if (!start) {
            return abandon(connection, start.error());
        }
        if (auto fetched = fetch(connection, *start); !fetched) {
            return abandon(connection, fetched.error());
        }
        if (auto finished = connection.download_file_finish(); !finished) {
            return finished.error();
        }
        if (auto completed = part_->complete(); !completed) {
            return completed.error();
        }
        return TransferReport{source_.size, resumed_from_};
    }

  private:
    // The part is opened only now, so that a path that doesn't exist leaves no trace here.
    Result<std::int64_t> open_part(const FileStamp& source) {
        if (!part_) {
            auto opened = detail::PartFile::open(download_.local_path);
            if (!opened) {
                return opened.error();
            }
            part_ = *std::move(opened);
        }
        auto start = part_->prepare(source);
        if (start && (!attempted_ || source != source_)) {
            attempted_ = true;
            source_ = source;
            resumed_from_ = furthest_ = *start;
        }
        return start;
    }

    Result<void> fetch(Connection& connection, std::int64_t position) {
        tell(position);
        if (auto requested = connection.download_file_data(position); !requested) {
            return requested;
        }
        detail::DataStream stream(connection, download_.encrypted, source_.size - position);
        while (true) {
            const auto pieces = stream.next();
            if (!pieces) {
                return pieces.error();
            }
            if (pieces->empty()) {
                return whole(position);
            }
            if (auto kept = keep(*pieces, position); !kept) {
                return kept;
            }
            if (connection.cancelled()) {
                return Error{ErrorKind::cancelled, 0, "cancelled"};
            }
        }
    }

    Result<void> keep(std::span<const iovec> pieces, std::int64_t& position) {
        for (const iovec& piece : pieces) {
            position += static_cast<std::int64_t>(piece.iov_len);
        }
        if (position > source_.size) {
            return Error{ErrorKind::file_changed, 0,
                         download_.source.path + " grew while it was fetched"};
        }
        if (auto appended = part_->append(pieces); !appended) {
            return appended;
        }
        tell(position);
        return {};
    }

    Result<void> whole(std::int64_t position) const {
        if (position < source_.size) {
            return Error{ErrorKind::file_changed, 0,
                         download_.source.path + " became shorter while it was fetched"};
        }
        return {};
    }

    // A download that stops halfway leaves data under way that nobody wants.
    static Error abandon(Connection& connection, Error error) {
        connection.close();
        return error;
    }

    void tell(std::int64_t done) {
        if (done > furthest_) {
            furthest_ = done;
            server_.progressed();
        }
        if (progress_) {
            progress_({done, source_.size, resumed_from_});
        }
    }

    const Download& download_;
    RetryingConnection& server_;
    const ProgressCallback& progress_;
    std::optional<detail::PartFile> part_;
    FileStamp source_;
    std::int64_t resumed_from_ = 0;
    std::int64_t furthest_ = 0;
    bool attempted_ = false;
};

}  // namespace

Result<TransferReport> download_file(RetryingConnection& server, const Download& download,
                                     const ProgressCallback& progress) {
    DownloadConversation conversation(download, server, progress);
    return server.run([&](Connection& connection) { return conversation.attempt(connection); });
}

}  // namespace transmit
