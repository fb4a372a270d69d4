#include <memory>

#include "kestin_base/file_system.h"
#include "kestin_base/record.h"
#include "src/norvane_transmit_node/event_lookup.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"

using Kestin::Base::file_set_time;
using Kestin::Base::kestin_look_at;
using Kestin::Base::kestin_rename_safe;
using Kestin::Base::kestin_sync_path;
using Kestin::Base::PathFacts;
using Kestin::Base::Record;

namespace {

// What outlives the event. The names stay claimed, and the temporary file locked, until the files
// are where they belong.
struct FinishedUpload {
    explicit FinishedUpload(UploadFileTcpEvent& event)
        : target_path(event.target_path()),
          written_size(event.written_size()),
          announced(event.announcement()),
          temporary(event.take_temporary()) {}

    bool is_whole() const { return written_size == announced.file_size; }

    std::string target_path;
    std::int64_t written_size;
    UploadAnnouncement announced;
    std::unique_ptr<TemporaryFile> temporary;
};

void record_unexpected_size(const std::string& target_path, std::int64_t written_size,
                            std::int64_t file_size) {
    kestin_record(Record::instance(), false,
                  "remote upload file (%s) failure, size unexpected: %I64d %s %I64d",
                  target_path.c_str(), written_size, written_size < file_size ? "<" : ">",
                  file_size);
}

// A file that came to the target while the upload ran counts as the client's if it has its size. It
// gets its time, too.
bool is_in_place(const PathFacts& target, const FinishedUpload& upload) {
    if (!target.is_regular || target.size != upload.announced.file_size) {
        return false;
    }
    return target.time == upload.announced.file_time ||
           (!upload.announced.target_stays &&
            file_set_time(upload.target_path.c_str(), upload.announced.file_time));
}

// The temporary file isn't needed.
message::Status keep_target(const OperationLog& log, const FinishedUpload& upload) {
    log_upload_end(log, upload.target_path);
    record_upload(upload.target_path, upload.announced.file_size);
    remove_file(log, KESTIN_LOG_WARNING, upload.temporary->path());
    const bool is_durable = upload.temporary->policy().is_durable;
    if (is_durable && !kestin_sync_path(upload.target_path.c_str())) {
        log.error(system_cause(), "sync file failed (%s)", upload.target_path.c_str());
        return message::status_rename_failed;
    }
    return message::status_ok;
}

// What can't be set aside must at least not be taken for the beginning of the client's file.
message::Status set_aside(const OperationLog& log, const FinishedUpload& upload) {
    const bool is_short = upload.written_size < upload.announced.file_size;
    record_unexpected_size(upload.target_path, upload.written_size, upload.announced.file_size);
    if (is_short) {
        log.error("file is incomplete");
    } else {
        log.error("file is overflow");
    }
    const std::string aside = upload.target_path + (is_short ? ".incomplete" : ".overflow");
    if (!kestin_rename_safe(upload.temporary->path().c_str(), aside.c_str())) {
        upload.temporary->spoil();
    }
    return is_short ? message::status_file_incomplete : message::status_file_overflow;
}

// The record has its line before the rename is tried. A time that can't be set doesn't undo a file
// that is in place.
message::Status install(const OperationLog& log, const FinishedUpload& upload) {
    record_upload(upload.target_path, upload.announced.file_size);
    if (!put_in_place(log, *upload.temporary, upload.target_path)) {
        return message::status_rename_failed;
    }
    if (!upload.temporary->is_stamped()) {
        log.error("set file time failed (%s)", upload.target_path.c_str());
    }
    log_upload_end(log, upload.target_path);
    return message::status_ok;
}

message::Status finish(const OperationLog& log, const FinishedUpload& upload) {
    const std::string& target_path = upload.target_path;
    if (!upload.temporary->is_in_place()) {
        log.error("rename file failed (%s) -> (%s)", upload.temporary->path().c_str(),
                  target_path.c_str());
        log.error("the temporary file isn't the one that was written");
        return message::status_rename_failed;
    }
    const PathFacts target = kestin_look_at(target_path.c_str());
    if (target.is_directory) {
        log.error("path is a directory (%s)", target_path.c_str());
        return message::status_path_is_directory;
    }
    if (target.is_unknown) {
        log.error(system_cause(), "rename file failed (%s) -> (%s)",
                  upload.temporary->path().c_str(), target_path.c_str());
        return message::status_rename_failed;
    }
    if (is_in_place(target, upload)) {
        return keep_target(log, upload);
    }
    if (upload.is_whole()) {
        return install(log, upload);
    }
    if (target.exists) {
        remove_file(log, KESTIN_LOG_WARNING, target_path);
    }
    return set_aside(log, upload);
}

}  // namespace

message::Status NorvaneTransmitNode::do_handle_upload_file_finish_request() {
    const OperationLog log = operation_log();
    auto* event = find_event<UploadFileTcpEvent>(log);
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    const FinishedUpload upload(*event);
    set_connection_transmit_event(nullptr);
    if (!upload.temporary->settle()) {
        // Of what was written nothing is known to be stored.
        log.error(system_cause(), "write file failed (%s)", upload.target_path.c_str());
        record_unexpected_size(upload.target_path, 0, upload.announced.file_size);
        return message::status_rename_failed;
    }
    const message::Status status = finish(log, upload);
    if (status == message::status_rename_failed || status == message::status_path_is_directory) {
        // It keeps its stamp, which vouches for bytes on the disk.
        upload.temporary->sync();
    }
    return status;
}
