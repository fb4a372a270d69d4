#include "client/detail/small_downloads.h"

#include <sys/stat.h>

#include "aes_ecb/aes_ecb.h"
#include "client/detail/part_file.h"
#include "client/detail/requests.h"
#include "client/detail/wire.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

constexpr auto payload_key = message::make_payload_key();

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

bool SmallDownloads::is_there(std::size_t file) const {
    struct stat status {};
    return stat(jobs_[file].local_path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           FileStamp{status.st_size, status.st_mtim.tv_sec} == *jobs_[file].stamp;
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
    if (auto received = receive_data(connection); !received) {
        return received.error();
    }
    if (const auto ended = wire.receive_response<message::DownloadFileFinish>(); !ended) {
        return ended.error();
    }
    if (auto turn = worker_.run.wait_for_turn(data_.size()); !turn) {
        return turn.error();
    }
    const FileStamp stamp{prepared->record.file_size, prepared->record.file_time};
    if (prepared->record.status != message::status_ok || stamp != *job.stamp ||
        static_cast<std::int64_t>(data_.size()) != stamp.size) {
        return false;
    }
    auto written = write_at_once(job.local_path, stamp.time, data_);
    return written ? written : Result<bool>(false);
}

// All blocks of a file. What is cut short or fails shows by its size.
Result<void> SmallDownloads::receive_data(Connection& connection) {
    data_.clear();
    ByteArray plain;
    while (true) {
        const auto block = connection.wire().receive_response<message::DownloadFileData>();
        if (!block) {
            return block.error();
        }
        if (block->tail.empty()) {
            return {};
        }
        if (!worker_.run.options().encrypted) {
            data_ += block->tail;
        } else if (aes_ecb_decrypt_data(payload_key.data(), payload_key.size(),
                                        reinterpret_cast<const std::uint8_t*>(block->tail.data()),
                                        block->tail.size(), plain)) {
            data_.append(reinterpret_cast<const char*>(plain.data()), plain.size());
        }
    }
}

}  // namespace transmit::detail
