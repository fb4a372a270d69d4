#include "client/detail/small_uploads.h"

#include "client/detail/requests.h"
#include "client/detail/upload_plan.h"
#include "client/detail/wire.h"
#include "src/message/status.h"

namespace transmit::detail {

namespace {

// What one write holds: enough that writes don't count, little enough that memory doesn't either.
constexpr std::size_t write_size = 1UL << 20;

}  // namespace

std::vector<std::size_t> SmallUploads::move(const std::vector<std::size_t>& files) {
    const auto connected = worker_.server.connect();
    if (!connected) {
        return files;
    }
    Connection& connection = **connected;
    left_.clear();
    auto staged = stage_all(connection, files);
    while (!staged.empty()) {
        auto sent = send_some(connection, staged);
        while (!sent.empty()) {
            const auto concluded = conclude(connection, sent.front());
            if (!concluded || !*concluded) {
                left_.push_back(sent.front().file);
            }
            sent.erase(sent.begin());
        }
    }
    return std::move(left_);
}

// Ahead of all sending, since it may ask the server for a listing.
std::vector<SmallUploads::Staged> SmallUploads::stage_all(Connection& connection,
                                                          const std::vector<std::size_t>& files) {
    std::vector<Staged> staged;
    for (const std::size_t file : files) {
        if (auto one = stage(connection, file)) {
            staged.push_back(*std::move(one));
        }
    }
    return staged;
}

std::optional<SmallUploads::Staged> SmallUploads::stage(Connection& connection, std::size_t file) {
    const UploadJob& job = jobs_[file];
    worker_.file = file;
    worker_.run.started(file);
    auto source = SourceFile::open(job.local_path);
    const auto content = folders_.parent(connection, job.target);
    if (!source || !content || source->stamp().size > UploadSender::small_size) {
        left_.push_back(file);
        return std::nullopt;
    }
    const auto name = split(job.target.path).name;
    const FileStamp stamp = source->stamp();
    const Entry* const there = (*content)->find(name);
    if (plan_upload(there, stamp, false, false) == UploadWay::none) {
        worker_.run.ended(file, TransferReport{.size = stamp.size, .already_there = true});
        return std::nullopt;
    }
    if (there || (*content)->has_longer(name, stamp)) {
        left_.push_back(file);
        return std::nullopt;
    }
    return Staged{file, *std::move(source)};
}

// Takes what goes into one write from the front, and sends it.
std::vector<SmallUploads::Staged> SmallUploads::send_some(Connection& connection,
                                                          std::vector<Staged>& staged) {
    const std::size_t bound = worker_.run.step(write_size);
    Wire& wire = connection.wire();
    wire.hold();
    std::vector<Staged> sent;
    std::size_t size = 0;
    auto place = staged.begin();
    for (; place != staged.end() && size < bound; ++place) {
        if (send(connection, *place)) {
            size += static_cast<std::size_t>(place->source.stamp().size);
            sent.push_back(std::move(*place));
        } else {
            left_.push_back(place->file);
        }
    }
    staged.erase(staged.begin(), place);
    if (!worker_.run.wait_for_turn(size)) {
        connection.close();
    }
    // What can't be sent has no answer: the careful way tells why.
    (void)wire.release();
    return sent;
}

// Into the write that is held. False if the source changed or can't be read.
bool SmallUploads::send(Connection& connection, const Staged& staged) {
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

// True if the file is in its place. Blocks of an upload that didn't begin are each answered.
Result<bool> SmallUploads::conclude(Connection& connection, const Staged& sent) {
    worker_.file = sent.file;
    Wire& wire = connection.wire();
    const auto prepared = wire.receive_response<message::UploadFilePrepare>();
    if (!prepared) {
        return prepared.error();
    }
    message::PlainResponse answer{};
    do {
        if (auto received = wire.receive(&answer, sizeof answer); !received) {
            return received.error();
        }
        message::to_host_order(answer);
    } while (answer.type == message::UploadFileData::response_type);
    if (answer.type != message::UploadFileFinish::response_type) {
        return wire.wrong_type(message::UploadFileFinish::response_type, answer.type);
    }
    if (answer.status != message::status_ok) {
        return false;
    }
    const std::int64_t size = sent.source.stamp().size;
    worker_.run.ended(sent.file, TransferReport{.size = size, .moved = size});
    return true;
}

}  // namespace transmit::detail
