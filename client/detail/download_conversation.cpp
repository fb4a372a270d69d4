#include "client/detail/download_conversation.h"

#include <algorithm>
#include <cstring>

#include "client/detail/attempts.h"
#include "client/detail/data_stream.h"
#include "client/detail/remote_file.h"
#include "client/detail/requests.h"
#include "client/detail/wire.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

// Streams of less than this aren't worth their connections.
constexpr std::int64_t smallest_stream = 16L << 20;
// A stream is judged after that.
constexpr std::chrono::seconds shortest_measure{1};

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

DownloadConversation::DownloadConversation(Worker& worker, DownloadTargets& targets,
                                           const DownloadJob& job, int streams)
    : worker_(worker),
      run_(worker.run),
      targets_(targets),
      job_(job),
      streams_(std::min<int>(streams, PartFile::most_segments)),
      watch_(worker) {
}

Result<TransferReport> DownloadConversation::run() {
    return run_attempts(
        worker_, [this](Connection& connection) { return attempt(connection); },
        [this](const Error& reason) { return start_over(reason); });
}

Result<void> DownloadConversation::start_over(const Error& reason) {
    watch_.starts_over(reason.text);
    std::ranges::fill(checked_, 0);
    return part_->forget();
}

Result<TransferReport> DownloadConversation::attempt(Connection& connection) {
    const auto source = prepare(connection);
    if (!source) {
        return source.error();
    }
    source_ = *source;
    if (!part_ && !run_.options().always) {
        const auto there = is_there(connection);
        if (!there) {
            return there.error();
        }
        if (*there) {
            return TransferReport{
                .size = source_.size, .already_there = true, .verified = run_.options().verify};
        }
    }
    if (run_.options().dry_run) {
        return TransferReport{.size = source_.size};
    }
    if (auto opened = open_part(); !opened) {
        if (requested_) {
            connection.close();
        }
        return opened.error();
    }
    watch_.goes_on(part_->stored(), source_.size);
    if (auto fetched = fetch_rest(connection); !fetched) {
        return fetched.error();
    }
    return conclude(connection);
}

// If nothing is here, all of the file is wanted, whatever the answer tells of it.
Result<FileStamp> DownloadConversation::prepare(Connection& connection) {
    const bool encrypted = run_.options().encrypted;
    requested_ = !part_ && !run_.options().dry_run && !is_begun();
    return requested_ ? connection.download_file(job_.source, encrypted)
                      : connection.download_file_prepare(job_.source, encrypted);
}

// Whether something lies at the target, or a part of an earlier download.
bool DownloadConversation::is_begun() const {
    const auto target = targets_.find(job_);
    return target && (stamp_of(*target) || PartFile::is_begun(*target));
}

// The part is opened only now, so that a path that doesn't exist leaves no trace here.
Result<void> DownloadConversation::open_part() {
    if (!part_) {
        auto target = targets_.make(job_);
        if (!target) {
            return target.error();
        }
        const auto is_reserved = targets_.reserved_beside(*target);
        auto opened = PartFile::open(*std::move(target), job_.source, is_reserved);
        if (!opened) {
            return opened.error();
        }
        part_ = *std::move(opened);
    }
    if (auto prepared = part_->prepare(source_); !prepared) {
        return prepared;
    }
    checked_.resize(part_->segments().size());
    return {};
}

std::deque<std::size_t> DownloadConversation::segments_to_fetch() const {
    std::deque<std::size_t> found;
    for (std::size_t index = 0; index < part_->segments().size(); ++index) {
        if (!part_->segments()[index].is_whole() || !checked_[index]) {
            found.push_back(index);
        }
    }
    return found;
}

// The first stream goes over the connection that is there, and each other one over its own. All are
// waited for, and the first error is that of the attempt.
Result<void> DownloadConversation::fetch_rest(Connection& connection) {
    waiting_ = segments_to_fetch();
    failure_.reset();
    if (const auto first = take_waiting()) {
        start_helpers();
        note(fetch(connection, *first, requested_));
        fetch_waiting();
    }
    helpers_.clear();
    return failure_ ? Result<void>(*failure_) : Result<void>();
}

void DownloadConversation::start_helpers() {
    const std::lock_guard guard(lock_);
    const auto wanted = std::min(static_cast<std::size_t>(streams_ - 1), waiting_.size());
    while (helpers_.size() < wanted) {
        helpers_.emplace_back([this] { fetch_waiting(); });
    }
}

void DownloadConversation::fetch_waiting() {
    while (const auto segment = take_waiting()) {
        note(fetch_on_new_connection(*segment));
    }
}

std::optional<std::size_t> DownloadConversation::take_waiting() {
    const std::lock_guard guard(lock_);
    if (waiting_.empty()) {
        return std::nullopt;
    }
    const std::size_t segment = waiting_.front();
    waiting_.pop_front();
    return segment;
}

void DownloadConversation::note(const Result<void>& outcome) {
    const std::lock_guard guard(lock_);
    if (!outcome && !failure_) {
        failure_ = outcome.error();
    }
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
    return fetch(**connection, segment, false);
}

// A stream that stops halfway leaves data under way that nobody wants.
Result<void> DownloadConversation::fetch(Connection& connection, std::size_t segment,
                                         bool requested) {
    auto fetched = fetch_stream(connection, segment, requested);
    if (!fetched || part_->segments()[segment].end < source_.size) {
        connection.close();
    }
    return fetched;
}

// `requested`: the data is on its way, from the file's beginning.
Result<void> DownloadConversation::fetch_stream(Connection& connection, std::size_t index,
                                                bool requested) {
    const Segment found = part_->segments()[index];
    const std::int64_t start = requested ? 0
                               : checked_[index]
                                   ? found.position
                                   : check_start(run_.options(), found.begin, found.position);
    if (start == found.position) {
        checked_[index] = 1;
    }
    if (!requested) {
        if (auto sent = connection.download_file_data(start); !sent) {
            return sent;
        }
    }
    return receive(connection, index, start);
}

Result<void> DownloadConversation::receive(Connection& connection, std::size_t index,
                                           std::int64_t start) {
    const auto begun = Clock::now();
    const auto end = [&] {
        return part_->segments()[index].end;
    };
    DataStream stream(connection, run_, source_.size - start);
    std::int64_t position = start;
    while (position < end() || end() == source_.size) {
        if (takes_long(position - start, Clock::now() - begun)) {
            if (auto divided = split(); !divided) {
                return divided;
            }
        }
        const auto pieces = stream.next();
        if (!pieces) {
            return pieces.error();
        }
        if (pieces->empty()) {
            return position == end()
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

// Whether the only stream, which moved so much in this time, had better get company. What that
// costs, connections and data under way behind the end of a stretch, must be little beside it.
bool DownloadConversation::takes_long(std::int64_t moved, Clock::duration time) const {
    if (streams_ == 1 || run_.options().limiter || part_->segments().size() > 1) {
        return false;
    }
    const Segment& only = part_->segments().front();
    const std::int64_t left = only.end - only.position;
    const std::chrono::duration<double> bearable = run_.options().single_stream;
    if (left < 2 * smallest_stream || bearable.count() == 0) {
        return left >= 2 * smallest_stream;
    }
    const double share = static_cast<double>(left) / static_cast<double>(moved);
    return time >= shortest_measure && moved > 0 && share * time > bearable;
}

// As long as there is one segment, there is one thread.
Result<void> DownloadConversation::split() {
    const Segment& only = part_->segments().front();
    const std::int64_t count =
        std::min<std::int64_t>(streams_, (only.end - only.position) / smallest_stream);
    if (auto divided = part_->split(count); !divided) {
        return divided;
    }
    checked_.resize(part_->segments().size());
    waiting_ = segments_to_fetch();
    waiting_.pop_front();
    start_helpers();
    return {};
}

Result<void> DownloadConversation::take(std::size_t index, std::span<const iovec> pieces,
                                        std::int64_t& position) {
    const Segment& segment = part_->segments()[index];
    const auto wanted = up_to(pieces, segment.end - position);
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
        return changed("what an earlier attempt left of " + job_.local_path,
                       " differs from the source");
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
        const auto stored = part_->sha256([this] { return run_.cancelled(); });
        const auto wanted = stored ? remote_sha256(**open, run_, job_.source) : stored;
        if (!wanted) {
            return wanted.error();
        }
        if (*wanted != *stored) {
            return changed(job_.source.path, " was another when it was read again");
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
    // A stream of another connection may have been the last: then nothing runs on this one.
    const bool was_idle = ended->record.status == message::status_invalid_connection_data;
    if (ended->record.status != message::status_ok && !was_idle) {
        return refusal(ended->record.status);
    }
    for (const std::uint16_t status : {source->record.status, left->record.status}) {
        if (status != message::status_ok) {
            return refusal(status);
        }
    }
    if (source->record.file_size != source_.size || source->record.file_time != source_.time) {
        return changed(job_.source.path, " changed while it was fetched");
    }
    return {};
}

Result<bool> DownloadConversation::is_there(Connection& connection) const {
    const auto& options = run_.options();
    const auto target = targets_.find(job_);
    const auto stamp = target ? stamp_of(*target) : std::nullopt;
    if (!stamp || stamp->size != source_.size ||
        (stamp->time != source_.time && !options.checksum)) {
        return false;
    }
    if (!options.checksum && !options.verify && !may_still_change(source_.time)) {
        return true;
    }
    const auto here = sha256_of(*target, source_.size, [this] { return run_.cancelled(); });
    const auto there = here ? remote_sha256(connection, run_, job_.source) : here;
    if (!there) {
        return there.error();
    }
    if (*here == *there) {
        return true;
    }
    // The comparison ended the download that was prepared.
    const auto source = connection.download_file_prepare(job_.source, options.encrypted);
    if (!source) {
        return source.error();
    }
    return *source == source_ ? Result<bool>(false)
                              : changed(job_.source.path, " changed while it was compared");
}

}  // namespace transmit::detail
