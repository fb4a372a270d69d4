#include <algorithm>

#include "kestin_base/file_system.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

using Kestin::Base::kestin_unlink_safe;

namespace {

std::string parent_of(const std::string& path) {
    const std::size_t separator = path.find_last_of("\\/");
    return path.substr(0, std::max<std::size_t>(separator, 1));
}

}  // namespace

// The claim comes before anything on the disk is changed: a temporary file that another upload
// writes must not be taken for one that broke off. A complete target needs no claim.
message::Status NorvaneTransmitNode::do_handle_upload_file_prepare_request(
    const message::UploadFilePrepareRequest& request, const std::string& path,
    message::UploadFilePrepareResponse& response) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const auto& service = NorvaneTransmitService::instance();
    const std::string target_path =
        service.make_transmit_path(request.storage_id, request.user_id, path.c_str(), true);
    const std::string temp_path = target_path + service.get_temp_file_suffix();
    if (temp_path.size() > longest_transfer_path) {
        log.error(SystemCause{ENAMETOOLONG}, "open file to write failed (%s)", temp_path.c_str());
        return message::status_open_write_failed;
    }
    UploadClaim claim;
    const bool is_claimed = claim.claim_target(target_path, temp_path);
    const auto target_facts = Kestin::Base::kestin_look_at(target_path.c_str());
    // A root that isn't there yet is no place for a file: its temporary file would lie outside.
    if (target_facts.is_directory || is_root(request.storage_id, request.user_id, target_path)) {
        log.warning("path is a directory (%s)", target_path.c_str());
        return message::status_path_is_directory;
    }

    const FileFacts target = facts_of_file(target_facts);
    const FileFacts announced = {.size = request.file_size, .time = request.file_time};
    if (plan_upload(target, {}, announced) == UploadPlan::already_complete) {
        if (is_claimed) {
            kestin_unlink_safe(temp_path.c_str());
        }
        response.offset = target.size;
        log_upload_end(log, target_path);
        record_upload(target_path, target.size);
        return message::status_ok;
    }
    if (!is_claimed) {
        log.warning("other node is uploading same file (%s)", target_path.c_str());
        return message::status_file_in_use;
    }
    const bool target_stays = target.exists && !remove_file(log, KESTIN_LOG_WARNING, target_path);
    return begin_upload(log, std::move(claim), target_path, temp_path,
                        {.encrypted = request.encrypted != 0,
                         .file_size = request.file_size,
                         .file_time = request.file_time,
                         .target_stays = target_stays},
                        response.offset);
}

// A transfer that was running on this node ends here and not before: every failure leaves it be.
message::Status NorvaneTransmitNode::begin_upload(const OperationLog& log, UploadClaim claim,
                                                  const std::string& target_path,
                                                  const std::string& temp_path,
                                                  const UploadAnnouncement& announcement,
                                                  std::int64_t& offset) {
    UploadFileTcpEvent::Pointer event = UploadFileTcpEvent::acquire();
    if (event == nullptr) {
        log.error("acquire new upload event failed (%s)", UploadFileTcpEvent::name);
        return message::status_acquire_event_failed;
    }
    if (!event->create(temp_path)) {
        const auto status =
            prepare_temporary_file(log, target_path, temp_path, announcement, offset);
        if (status != message::status_file_incomplete) {
            return status;
        }
    }
    if (!event->open(std::move(claim), target_path, temp_path, offset, announcement)) {
        log.error(system_cause(), "open file to write failed (%s)", temp_path.c_str());
        return message::status_open_write_failed;
    }
    set_connection_transmit_event(event.release());
    log.debug("upload file begin (%s)", target_path.c_str());
    return message::status_file_incomplete;
}

// As a rule the temporary file can simply be made. Where it can't, one may be there already, or its
// folder isn't yet.
message::Status NorvaneTransmitNode::prepare_temporary_file(const OperationLog& log,
                                                            const std::string& target_path,
                                                            const std::string& temp_path,
                                                            const UploadAnnouncement& announcement,
                                                            std::int64_t& offset) {
    const FileFacts temporary = look_at_file(temp_path);
    const UploadPlan plan = plan_upload(
        {}, temporary, {.size = announcement.file_size, .time = announcement.file_time});
    if (plan != UploadPlan::start_over) {
        offset = temporary.size;
    } else if (temporary.exists && !remove_file(log, KESTIN_LOG_ERROR, temp_path)) {
        return message::status_delete_failed;
    }
    if (plan == UploadPlan::finish_temporary) {
        return finish_temporary_file(log, target_path, temp_path, temporary.size);
    }
    const std::string parent = parent_of(target_path);
    if (!make_directory(parent)) {
        log.error(system_cause(), "create directory failed (%s)", parent.c_str());
        return message::status_create_directory_failed;
    }
    return message::status_file_incomplete;
}

// An earlier upload wrote all of it and broke off before its finish.
message::Status NorvaneTransmitNode::finish_temporary_file(const OperationLog& log,
                                                           const std::string& target_path,
                                                           const std::string& temp_path,
                                                           std::int64_t size) {
    if (!put_in_place(log, temp_path, target_path)) {
        return message::status_rename_failed;
    }
    log_upload_end(log, target_path);
    record_upload(target_path, size);
    return message::status_ok;
}
