#include "client/detail/small_downloads.h"

#include "aes_ecb/aes_ecb.h"
#include "client/detail/part_file.h"
#include "client/detail/requests.h"
#include "client/detail/wire.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

constexpr auto payload_key = message::make_payload_key();
// What PKCS#7 adds to a block at most (RFC 5652, section 6.3).
constexpr std::uint32_t longest_padding = 16;

Result<void> speed_is_set(Wire& wire) {
    const auto answer = wire.receive_response<message::SetTransmitSpeed>();
    return answer ? Result<void>() : answer.error();
}

}  // namespace

void SmallDownloads::send(Connection& connection, const std::vector<std::size_t>& files) {
    Run run;
    for (const std::size_t file : files) {
        const std::int64_t size = jobs_[file].stamp->size;
        worker_.run.started(file);
        if (is_there(file)) {
            worker_.run.ended(file, TransferReport{.size = size, .already_there = true});
        } else {
            run.push_back({file, size});
        }
    }
    if (!run.empty()) {
        ask(connection, run);
        went_out(std::move(run));
    }
}

bool SmallDownloads::is_there(std::size_t file) {
    const auto target = targets_.find(jobs_[file]);
    return target && stamp_of(*target) == *jobs_[file].stamp &&
           !may_still_change(jobs_[file].stamp->time);
}

void SmallDownloads::ask(Connection& connection, const Run& run) {
    Wire& wire = connection.wire();
    wire.hold();
    (void)wire.send_request<message::SetTransmitSpeed>(set_speed(speed_by_files));
    for (const Sent& sent : run) {
        const RemotePath& path = jobs_[sent.file].source;
        (void)wire.send_request<message::DownloadFilePrepare>(
            download_prepare(path, worker_.run.options().encrypted), path.path);
        (void)wire.send_request<message::DownloadFileData>({});
        (void)wire.send_request<message::DownloadFileFinish>({});
    }
    (void)wire.send_request<message::SetTransmitSpeed>(set_speed(speed_by_blocks));
    // What can't be sent has no answer.
    (void)wire.release();
}

// A failure of the connection shows itself at each file.
void SmallDownloads::conclude(Connection& connection, const Run& run) {
    (void)speed_is_set(connection.wire());
    for (const Sent& sent : run) {
        worker_.file = sent.file;
        const auto received = receive(connection, jobs_[sent.file]);
        if (received && *received) {
            moved(sent);
        } else {
            leave(sent.file);
        }
    }
    (void)speed_is_set(connection.wire());
}

// True if the file is in its place. An error ends the connection, and with it all that follow.
Result<bool> SmallDownloads::receive(Connection& connection, const DownloadJob& job) {
    Wire& wire = connection.wire();
    const auto prepared = wire.receive_response<message::DownloadFilePrepare>();
    if (!prepared) {
        return prepared.error();
    }
    const auto complete = receive_data(connection, job.stamp->size);
    if (!complete) {
        return complete.error();
    }
    const auto ended = wire.receive_response<message::DownloadFileFinish>();
    if (!ended) {
        return ended.error();
    }
    if (auto turn = worker_.run.wait_for_turn(data_.size()); !turn) {
        return turn.error();
    }
    const FileStamp stamp{prepared->record.file_size, prepared->record.file_time};
    if (prepared->record.status != message::status_ok || stamp != *job.stamp || !*complete ||
        ended->record.status != message::status_ok) {
        return false;
    }
    const auto target = targets_.make(job);
    if (!target) {
        return false;
    }
    auto written = write_at_once(*target, stamp.time, data_, targets_.reserved_beside(*target));
    return written ? written : Result<bool>(false);
}

// All blocks of a file; true if they are `size` bytes and all is well. More than that, or a block
// of nothing, ends the connection.
Result<bool> SmallDownloads::receive_data(Connection& connection, std::int64_t size) {
    data_.clear();
    ByteArray plain;
    const bool encrypted = worker_.run.options().encrypted;
    while (true) {
        const auto left = static_cast<std::uint32_t>(size - std::ssize(data_));
        const auto block = connection.wire().receive_response<message::DownloadFileData>(
            left + (encrypted ? longest_padding : 0));
        if (!block) {
            return block.error();
        }
        if (block->tail.empty()) {
            return block->record.status == message::status_ok && left == 0;
        }
        std::string_view bytes = block->tail;
        if (encrypted) {
            if (!aes_ecb_decrypt_data(payload_key.data(), payload_key.size(),
                                      reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                      bytes.size(), plain)) {
                plain.clear();
            }
            bytes = {reinterpret_cast<const char*>(plain.data()), plain.size()};
        }
        if (block->record.status != message::status_ok || bytes.empty() || bytes.size() > left) {
            connection.close();
            return Error{ErrorKind::bad_answer, 0, "the server sent a block that is none"};
        }
        data_ += bytes;
    }
}

}  // namespace transmit::detail
