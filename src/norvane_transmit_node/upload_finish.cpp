#include "kestin_base/file_system.h"
#include "kestin_base/record.h"
#include "src/norvane_transmit_node/event_lookup.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"

using Kestin::Base::file_set_time;
using Kestin::Base::kestin_access_safe;
using Kestin::Base::kestin_look_at;
using Kestin::Base::kestin_rename_safe;
using Kestin::Base::PathFacts;
using Kestin::Base::Record;

// What outlives the event: its names stay claimed until the files are where they belong.
struct NorvaneTransmitNode::FinishedUpload {
    explicit FinishedUpload(UploadFileTcpEvent& event)
        : target_path(event.target_path()),
          temp_path(event.temp_path()),
          written_size(event.written_size()),
          file_size(event.file_size()),
          file_time(event.file_time()),
          target_stands(kestin_access_safe(target_path.c_str())),
          claim(event.take_claim()) {}

    std::string target_path;
    std::string temp_path;
    std::int64_t written_size;
    std::int64_t file_size;
    std::int64_t file_time;
    bool target_stands;
    bool is_stamped = false;
    UploadClaim claim;
};

namespace {

void record_unexpected_size(const std::string& target_path, std::int64_t written_size,
                            std::int64_t file_size) {
    kestin_record(Record::instance(), false,
                  "remote upload file (%s) failure, size unexpected: %I64d %s %I64d",
                  target_path.c_str(), written_size, written_size < file_size ? "<" : ">",
                  file_size);
}

// What can't be set aside must at least not be taken for the beginning of the client's file.
void set_aside(const std::string& temp_path, const std::string& aside_path) {
    if (!kestin_rename_safe(temp_path.c_str(), aside_path.c_str())) {
        file_set_time(temp_path.c_str(), 0);
    }
}

}  // namespace

message::Status NorvaneTransmitNode::do_handle_upload_file_finish_request() {
    const OperationLog log = operation_log();
    auto* event = find_event<UploadFileTcpEvent>(log);
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    FinishedUpload upload(*event);
    if (!event->close()) {
        // Of what was written nothing is known to be stored.
        log.error(system_cause(), "write file failed (%s)", upload.target_path.c_str());
        upload.written_size = 0;
    }
    upload.is_stamped = event->is_stamped();
    if (!upload.target_stands) {
        event->spare_target();
    }
    set_connection_transmit_event(nullptr);
    return finish_upload(log, upload);
}

message::Status NorvaneTransmitNode::finish_upload(const OperationLog& log,
                                                   const FinishedUpload& upload) {
    const std::string& target_path = upload.target_path;
    const auto facts = upload.target_stands ? kestin_look_at(target_path.c_str()) : PathFacts{};
    if (facts.is_directory) {
        log.error("path is a directory (%s)", target_path.c_str());
        return message::status_path_is_directory;
    }
    const FileFacts target = facts_of_file(facts);
    if (target.exists && target.time == upload.file_time && target.size == upload.file_size) {
        log_upload_end(log, target_path);
        record_upload(target_path, upload.file_size);
        if (kestin_access_safe(upload.temp_path.c_str())) {
            remove_file(log, KESTIN_LOG_WARNING, upload.temp_path);
        }
        return message::status_ok;
    }
    if (target.exists) {
        remove_file(log, KESTIN_LOG_WARNING, target_path);
    }
    if (upload.written_size != upload.file_size) {
        record_unexpected_size(target_path, upload.written_size, upload.file_size);
    }
    if (upload.written_size < upload.file_size) {
        log.error("file is incomplete");
        set_aside(upload.temp_path, target_path + ".incomplete");
        return message::status_file_incomplete;
    }
    if (upload.written_size > upload.file_size) {
        log.error("file is overflow");
        set_aside(upload.temp_path, target_path + ".overflow");
        return message::status_file_overflow;
    }
    // The record has its line before the rename is tried.
    record_upload(target_path, upload.file_size);
    if (!put_in_place(log, upload.temp_path, target_path)) {
        set_time(log, upload.temp_path, upload.file_time);
        return message::status_rename_failed;
    }
    // A time that can't be set doesn't undo a file that is in place.
    if (!upload.is_stamped) {
        set_time(log, target_path, upload.file_time);
    }
    log_upload_end(log, target_path);
    return message::status_ok;
}
