#include "client/detail/small_uploads.h"

#include "client/detail/requests.h"
#include "client/detail/upload_plan.h"
#include "client/detail/wire.h"
#include "src/message/status.h"

namespace transmit::detail {

std::vector<std::size_t> SmallUploads::move(const std::vector<std::size_t>& files) {
    const auto connection = worker_.server.connect();
    if (!connection) {
        return files;
    }
    left_.clear();
    std::optional<Staged> current;
    auto file = files.begin();
    while ((current || file != files.end()) && (*connection)->is_open()) {
        std::optional<Staged> next;
        while (!next && file != files.end()) {
            next = stage(**connection, *file++);
        }
        if (!move_on(**connection, current, next)) {
            (*connection)->close();
            leave(current);
            leave(next);
            break;
        }
        current = std::move(next);
    }
    left_.insert(left_.end(), file, files.end());
    if (std::exchange(is_claimed_, false) && (*connection)->is_open()) {
        // A failure shows itself to who uses the connection next.
        (void)(*connection)->cleanup_connection();
    }
    return std::move(left_);
}

// One round trip. A file that isn't ready has been left already.
Result<void> SmallUploads::move_on(Connection& connection, std::optional<Staged>& current,
                                   std::optional<Staged>& next) {
    if (auto sent = send(connection, current, next); !sent) {
        return sent;
    }
    if (current) {
        if (auto concluded = conclude(connection, *current); !concluded) {
            return concluded;
        }
        current.reset();
    }
    if (next) {
        if (auto answered = await_readiness(connection, *next); !answered) {
            return answered;
        }
        if (!next->ready) {
            leave(next);
            next.reset();
        }
    }
    return {};
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

Result<void> SmallUploads::send(Connection& connection, const std::optional<Staged>& current,
                                const std::optional<Staged>& next) {
    Wire& wire = connection.wire();
    wire.hold();
    if (current) {
        const auto blocks = sender_.blocks_of(current->source);
        if (!blocks) {
            return blocks.error();
        }
        const auto size = static_cast<std::size_t>(current->source.stamp().size);
        if (auto turn = worker_.run.wait_for_turn(size); !turn) {
            return turn;
        }
        (void)connection.upload_file_data(*blocks);
        (void)wire.send_request<message::UploadFileFinish>({});
    }
    if (next) {
        const RemotePath& target = jobs_[next->file].target;
        (void)wire.send_request<message::UploadFilePrepare>(
            upload_prepare(target, next->source.stamp(), worker_.run.options().encrypted),
            target.path);
    }
    return wire.release();
}

Result<void> SmallUploads::conclude(Connection& connection, const Staged& current) {
    const auto answer = connection.wire().receive_response<message::UploadFileFinish>();
    if (!answer) {
        return answer.error();
    }
    if (answer->record.status != message::status_ok) {
        left_.push_back(current.file);
        return {};
    }
    const std::int64_t size = current.source.stamp().size;
    worker_.run.ended(current.file, TransferReport{.size = size, .moved = size});
    return {};
}

Result<void> SmallUploads::await_readiness(Connection& connection, Staged& next) {
    worker_.file = next.file;
    const auto answer = connection.wire().receive_response<message::UploadFilePrepare>();
    if (!answer) {
        return answer.error();
    }
    const bool has_begun = answer->record.status == message::status_file_incomplete;
    next.ready = has_begun && answer->record.offset == 0;
    is_claimed_ = has_begun && !next.ready;
    return {};
}

void SmallUploads::leave(const std::optional<Staged>& staged) {
    if (staged) {
        left_.push_back(staged->file);
    }
}

}  // namespace transmit::detail
