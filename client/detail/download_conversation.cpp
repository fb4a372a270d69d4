#include "client/detail/download_conversation.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <filesystem>
#include <thread>

#include "client/detail/data_stream.h"
#include "client/detail/remote_file.h"
#include "client/detail/requests.h"
#include "client/detail/wire.h"

namespace transmit::detail {
namespace {

// A source that changes all the time is given up at last.
constexpr int most_starts_over = 3;
// Streams of less than this aren't worth their connections.
constexpr std::int64_t smallest_stream = 16L << 20;

Error changed(const std::string& path, const char* how) {
    return {ErrorKind::file_changed, 0, path + how};
}

// The pieces in front of a place of the file at which another stream takes over.
std::vector<iovec> up_to(std::span<const iovec> pieces, std::int64_t room) {
    std::vector<iovec> clipped;
    for (const iovec& piece : pieces) {
        const auto size = std::min<std::int64_t>(room, static_cast<std::int64_t>(piece.iov_len));
        if (size > 0) {
            clipped.push_back({piece.iov_base, static_cast<std::size_t>(size)});
            room -= size;
        }
    }
    return clipped;
}

}  // namespace

DownloadConversation::DownloadConversation(Worker& worker, const DownloadJob& job, int streams)
    : worker_(worker), run_(worker.run), job_(job), streams_(streams), watch_(worker) {
}

Result<TransferReport> DownloadConversation::run() {
    while (true) {
        auto outcome =
            worker_.server.run([this](Connection& connection) { return attempt(connection); });
        if (outcome || outcome.error().kind != ErrorKind::file_changed ||
            times_started_over_++ == most_starts_over) {
            return outcome;
        }
        if (auto prepared = prepare_to_start_over(outcome.error()); !prepared) {
            return prepared.error();
        }
    }
}

Result<void> DownloadConversation::prepare_to_start_over(const Error& reason) {
    watch_.starts_over(reason.text);
    std::ranges::fill(checked_, 0);
    return part_->forget();
}

Result<TransferReport> DownloadConversation::attempt(Connection& connection) {
    const auto source = connection.download_file_prepare(job_.source, run_.options().encrypted);
    if (!source) {
        return source.error();
    }
    source_ = *source;
    if (!run_.options().always && is_there(source_)) {
        return TransferReport{.size = source_.size, .already_there = true};
    }
    if (run_.options().dry_run) {
        return TransferReport{.size = source_.size};
    }
    if (auto opened = open_part(); !opened) {
        return opened.error();
    }
    watch_.goes_on(part_->stored(), source_.size);
    if (auto fetched = fetch_rest(connection); !fetched) {
        return fetched.error();
    }
    return conclude(connection);
}

// The part is opened only now, so that a path that doesn't exist leaves no trace here.
Result<void> DownloadConversation::open_part() {
    if (!part_) {
        std::error_code ignored;
        std::filesystem::create_directories(std::filesystem::path(job_.local_path).parent_path(),
                                            ignored);
        auto opened = PartFile::open(job_.local_path);
        if (!opened) {
            return opened.error();
        }
        part_ = *std::move(opened);
    }
    const auto worthwhile = std::clamp<std::int64_t>(source_.size / smallest_stream, 1, streams_);
    if (auto prepared = part_->prepare(source_, static_cast<int>(worthwhile)); !prepared) {
        return prepared;
    }
    checked_.resize(part_->segments().size());
    return {};
}

std::vector<std::size_t> DownloadConversation::segments_to_fetch() const {
    std::vector<std::size_t> found;
    for (std::size_t index = 0; index < part_->segments().size(); ++index) {
        if (!part_->segments()[index].is_whole() || !checked_[index]) {
            found.push_back(index);
        }
    }
    return found;
}

// The first stream goes over the connection that is there. All are waited for, and the first error
// is that of the attempt.
Result<void> DownloadConversation::fetch_rest(Connection& connection) {
    const auto segments = segments_to_fetch();
    std::vector<Result<void>> outcomes(segments.size());
    std::atomic<std::size_t> next = 1;
    const auto fetch_more = [&] {
        for (std::size_t index = next++; index < segments.size(); index = next++) {
            outcomes[index] = fetch_on_new_connection(segments[index]);
        }
    };
    {
        std::deque<std::jthread> threads;
        for (int index = 1; index < std::min<int>(streams_, static_cast<int>(segments.size()));
             ++index) {
            threads.emplace_back(fetch_more);
        }
        if (!segments.empty()) {
            outcomes[0] = fetch(connection, segments[0]);
        }
        fetch_more();
    }
    const auto failed =
        std::ranges::find_if(outcomes, [](const auto& outcome) { return !outcome; });
    return failed == outcomes.end() ? Result<void>() : *failed;
}

Result<void> DownloadConversation::fetch_on_new_connection(std::size_t segment) {
    RetryingConnection server(run_.server().endpoint, worker_.run.limits_for(worker_.file),
                              RetryPolicy{.time_limit = {}});
    const auto connection = server.connect();
    if (!connection) {
        return connection.error();
    }
    const auto source = (*connection)->download_file_prepare(job_.source, run_.options().encrypted);
    if (!source) {
        return source.error();
    }
    if (*source != source_) {
        return changed(job_.source.path, " changed while it was fetched");
    }
    return fetch(**connection, segment);
}

// A stream that stops halfway leaves data under way that nobody wants.
Result<void> DownloadConversation::fetch(Connection& connection, std::size_t segment) {
    auto fetched = fetch_stream(connection, segment);
    if (!fetched || part_->segments()[segment].end < source_.size) {
        connection.close();
    }
    return fetched;
}

Result<void> DownloadConversation::fetch_stream(Connection& connection, std::size_t index) {
    const Segment& segment = part_->segments()[index];
    std::int64_t position = checked_[index]
                                ? segment.position
                                : check_start(run_.options(), segment.begin, segment.position);
    if (position == segment.position) {
        checked_[index] = 1;
    }
    if (auto requested = connection.download_file_data(position); !requested) {
        return requested;
    }
    DataStream stream(connection, run_, segment.end - position);
    while (position < segment.end || segment.end == source_.size) {
        const auto pieces = stream.next();
        if (!pieces) {
            return pieces.error();
        }
        if (pieces->empty()) {
            return position == segment.end
                       ? Result<void>()
                       : changed(job_.source.path, " became shorter while it was fetched");
        }
        if (auto taken = take(index, *pieces, position); !taken) {
            return taken;
        }
        if (connection.cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
    }
    return {};
}

Result<void> DownloadConversation::take(std::size_t index, std::span<const iovec> pieces,
                                        std::int64_t& position) {
    const Segment& segment = part_->segments()[index];
    const auto wanted = up_to(pieces, segment.end - position);
    const bool grew = wanted.size() < pieces.size() ||
                      (!wanted.empty() && wanted.back().iov_len < pieces.back().iov_len);
    if (grew && segment.end == source_.size) {
        return changed(job_.source.path, " grew while it was fetched");
    }
    std::vector<iovec> fresh;
    for (iovec piece : wanted) {
        const std::int64_t known = std::clamp<std::int64_t>(
            segment.position - position, 0, static_cast<std::int64_t>(piece.iov_len));
        if (auto same = compare({piece.iov_base, static_cast<std::size_t>(known)}, position);
            !same) {
            return same;
        }
        watch_.compared(static_cast<std::size_t>(known));
        position += static_cast<std::int64_t>(piece.iov_len);
        fresh.push_back({static_cast<char*>(piece.iov_base) + known,
                         piece.iov_len - static_cast<std::size_t>(known)});
    }
    if (position >= segment.position) {
        checked_[index] = 1;
    }
    const std::int64_t before = segment.position;
    if (auto appended = part_->append(index, fresh); !appended) {
        return appended;
    }
    watch_.moved(static_cast<std::size_t>(segment.position - before));
    return {};
}

Result<void> DownloadConversation::compare(const iovec& piece, std::int64_t position) const {
    if (piece.iov_len == 0) {
        return {};
    }
    std::vector<char> stored(piece.iov_len);
    if (auto read = part_->read(stored.data(), stored.size(), position); !read) {
        return read;
    }
    if (std::memcmp(stored.data(), piece.iov_base, stored.size()) != 0) {
        return changed(job_.local_path, ".part differs from the source");
    }
    return {};
}

Result<TransferReport> DownloadConversation::conclude(Connection& connection) {
    const auto open =
        connection.is_open() ? Result<Connection*>(&connection) : worker_.server.connect();
    if (!open) {
        return open.error();
    }
    if (auto same = source_is_unchanged(**open); !same) {
        return same.error();
    }
    TransferReport report = watch_.report();
    if (run_.options().verify) {
        const auto stored = part_->sha256();
        const auto wanted = stored ? remote_sha256(**open, run_, job_.source) : stored;
        if (!wanted) {
            return wanted.error();
        }
        if (*wanted != *stored) {
            return changed(job_.local_path, ".part differs from the source, read again");
        }
        report.verified = true;
    }
    if (auto completed = part_->complete(); !completed) {
        return completed.error();
    }
    return report;
}

// The end of the download and a look at the source, in one round trip.
Result<void> DownloadConversation::source_is_unchanged(Connection& connection) const {
    Wire& wire = connection.wire();
    wire.hold();
    (void)wire.send_request<message::DownloadFileFinish>({});
    (void)wire.send_request<message::DownloadFilePrepare>(
        download_prepare(job_.source, run_.options().encrypted), job_.source.path);
    (void)wire.send_request<message::DownloadFileFinish>({});
    if (auto sent = wire.release(); !sent) {
        return sent;
    }
    const auto ended = wire.receive_response<message::DownloadFileFinish>();
    const auto source = wire.receive_response<message::DownloadFilePrepare>();
    const auto left = wire.receive_response<message::DownloadFileFinish>();
    if (!ended || !source || !left) {
        return !ended ? ended.error() : !source ? source.error() : left.error();
    }
    if (source->record.file_size != source_.size || source->record.file_time != source_.time) {
        return changed(job_.source.path, " changed while it was fetched");
    }
    return {};
}

bool DownloadConversation::is_there(const FileStamp& source) const {
    struct stat status {};
    return stat(job_.local_path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           FileStamp{status.st_size, status.st_mtim.tv_sec} == source;
}

}  // namespace transmit::detail
