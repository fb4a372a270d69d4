#include "client/detail/small_uploads.h"

#include "client/detail/requests.h"
#include "client/detail/upload_plan.h"
#include "client/detail/wire.h"
#include "src/message/status.h"

namespace transmit::detail {

namespace {

// What one write holds: enough that writes don't count, little enough that memory doesn't either.
constexpr std::size_t write_size = 1UL << 20;
// What the server adds to the name of a file that proved longer than announced.
constexpr std::string_view overflow_suffix = ".overflow";
// Blocks of the largest small file, each of which a server may answer.
constexpr int most_answers = most_blocks;
// In place of a success that what came before it gives the lie.
constexpr std::uint16_t no_success = 0xFFFF;

}  // namespace

// All are staged ahead of sending, since that may ask the server for a listing.
void SmallUploads::send(Connection& connection, const std::vector<std::size_t>& files) {
    std::deque<Staged> staged;
    for (const std::size_t file : files) {
        if (auto one = stage(connection, file)) {
            staged.push_back(*std::move(one));
        }
    }
    while (!staged.empty()) {
        went_out(send_some(connection, staged));
    }
}

std::optional<SmallUploads::Staged> SmallUploads::stage(Connection& connection, std::size_t file) {
    const UploadJob& job = jobs_[file];
    worker_.file = file;
    worker_.run.started(file);
    auto source = SourceFile::open(job.local_path);
    if (!folders_.knows(job.target)) {
        conclude_all();
    }
    const auto content = folders_.parent(connection, job.target);
    if (!source || !content || source->stamp().size > UploadSender::small_size) {
        leave(file);
        return std::nullopt;
    }
    const auto name = split(job.target.path).name;
    const FileStamp stamp = source->stamp();
    const Entry* const there = (*content)->find(name);
    if (plan_upload(there, stamp, false, false) == UploadWay::none &&
        !may_still_change(stamp.time)) {
        worker_.run.ended(file, TransferReport{.size = stamp.size, .already_there = true});
        return std::nullopt;
    }
    if (there || (*content)->has_longer(name, stamp.size) ||
        names_.endangers(job.target.path, **content)) {
        leave(file);
        return std::nullopt;
    }
    return Staged{file, *std::move(source)};
}

// Takes what goes into one write from the front, and sends it.
SmallFiles::Run SmallUploads::send_some(Connection& connection, std::deque<Staged>& staged) {
    const std::size_t bound = worker_.run.step(write_size);
    Wire& wire = connection.wire();
    wire.hold();
    Run run;
    std::size_t size = 0;
    for (; !staged.empty() && size < bound; staged.pop_front()) {
        const Staged& one = staged.front();
        if (send_one(connection, one)) {
            size += static_cast<std::size_t>(one.source.stamp().size);
            run.push_back({one.file, one.source.stamp().size});
        } else {
            leave(one.file);
        }
    }
    if (!worker_.run.wait_for_turn(size)) {
        connection.close();
    }
    // What can't be sent has no answer: the careful way tells why.
    (void)wire.release();
    return run;
}

// Into the write that is held. False if the source changed or can't be read.
bool SmallUploads::send_one(Connection& connection, const Staged& staged) {
    const auto blocks = sender_.blocks_of(staged.source);
    if (!blocks) {
        return false;
    }
    const RemotePath& target = jobs_[staged.file].target;
    (void)connection.wire().send_request<message::UploadFilePrepare>(
        upload_prepare(target, staged.source.stamp(), worker_.run.options().encrypted),
        target.path);
    (void)connection.upload_file_data(*blocks);
    (void)connection.wire().send_request<message::UploadFileFinish>({});
    return true;
}

void SmallUploads::conclude(Connection& connection, const Run& run) {
    for (const Sent& sent : run) {
        worker_.file = sent.file;
        const auto outcome = receive_outcome(connection);
        if (outcome && *outcome == message::status_ok) {
            moved(sent);
            continue;
        }
        leave(sent.file);
        if (outcome && *outcome == message::status_file_overflow) {
            overflown_.push_back(jobs_[sent.file].target);
        }
    }
}

// That of the finish, or what came before it and isn't as it is for a file that begins and goes
// well. Blocks of an upload that didn't begin are each answered.
Result<std::uint16_t> SmallUploads::receive_outcome(Connection& connection) {
    Wire& wire = connection.wire();
    const auto prepared = wire.receive_response<message::UploadFilePrepare>();
    if (!prepared) {
        return prepared.error();
    }
    const bool begun =
        prepared->record.status == message::status_file_incomplete && prepared->record.offset == 0;
    bool all_well = begun;
    message::PlainResponse answer{};
    // Of a small file there are few blocks.
    for (int answers = 0; answers <= most_answers; ++answers) {
        if (auto received = wire.receive(&answer, sizeof answer); !received) {
            return received.error();
        }
        message::to_host_order(answer);
        if (answer.type != message::UploadFileData::response_type) {
            break;
        }
        all_well = false;
    }
    if (answer.type != message::UploadFileFinish::response_type) {
        return wire.wrong_type(message::UploadFileFinish::response_type, answer.type);
    }
    return answer.status == message::status_ok && !all_well ? no_success : answer.status;
}

// A file that was sent behind the beginning of another client's, which had come after the listing,
// was set aside by the server.
void SmallUploads::tidy_up(Connection& connection) {
    for (RemotePath& path : std::exchange(overflown_, {})) {
        path.path += overflow_suffix;
        (void)connection.delete_path(path);
    }
}

}  // namespace transmit::detail
