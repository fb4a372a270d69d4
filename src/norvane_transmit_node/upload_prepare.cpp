#include <memory>
#include <utility>

#include "kestin_base/file_system.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

using Kestin::Base::kestin_look_at;
using Kestin::Base::kestin_sync_path;
using Kestin::Base::kestin_unlink_safe;
using Kestin::Base::PathFacts;

namespace {

message::Status refuse_to_open(const OperationLog& log, SystemCause cause,
                               const std::string& temp_path) {
    log.error(cause, "open file to write failed (%s)", temp_path.c_str());
    return message::status_open_write_failed;
}

message::Status refuse_as_in_use(const OperationLog& log, const std::string& target_path) {
    log.warning("other node is uploading same file (%s)", target_path.c_str());
    return message::status_file_in_use;
}

// The nearest folder above a path that is there.
std::string standing_parent(const std::string& path) {
    std::string parent = parent_of(path);
    while (!is_directory(parent) && parent.size() > 1) {
        parent = parent_of(parent);
    }
    return parent;
}

// Makes the folders above a file. If it is to be durable, each new one is on the disk afterwards.
bool make_folders_above(const std::string& path, bool is_durable) {
    const std::string standing = standing_parent(path);
    std::string folder = parent_of(path);
    if (!make_directory(folder)) {
        return false;
    }
    while (is_durable && folder.size() > standing.size()) {
        folder = parent_of(folder);
        if (!kestin_sync_path(folder.c_str())) {
            return false;
        }
    }
    return true;
}

message::Status status_of(const OperationLog& log, TemporaryFile::Opening opening,
                          const std::string& target_path, const std::string& temp_path) {
    switch (opening) {
        case TemporaryFile::Opening::ready:
            return message::status_ok;
        case TemporaryFile::Opening::in_use:
            return refuse_as_in_use(log, target_path);
        default:
            return refuse_to_open(log, system_cause(), temp_path);
    }
}

// As a rule the temporary file can simply be made. Where it can't, its folder may be missing, or
// something else stands there.
message::Status open_temporary(const OperationLog& log, TemporaryFile& temporary,
                               std::uint32_t storage_id, const std::string& target_path) {
    auto opening = temporary.open();
    if (opening == TemporaryFile::Opening::missing) {
        if (!NorvaneTransmitService::instance().may_create_in(storage_id) ||
            !make_folders_above(target_path, temporary.policy().is_durable)) {
            log.error(system_cause(), "create directory failed (%s)",
                      parent_of(target_path).c_str());
            return message::status_create_directory_failed;
        }
        opening = temporary.open();
    } else if (opening == TemporaryFile::Opening::obstacle) {
        if (!remove_file(log, KESTIN_LOG_ERROR, temporary.path())) {
            return message::status_delete_failed;
        }
        opening = temporary.open();
    }
    return status_of(log, opening, target_path, temporary.path());
}

// A file that can't be continued is replaced by a new one.
message::Status start_over(const OperationLog& log, TemporaryFile& temporary,
                           const std::string& target_path) {
    if (temporary.is_new()) {
        return message::status_ok;
    }
    if (!remove_file(log, KESTIN_LOG_ERROR, temporary.path())) {
        return message::status_delete_failed;
    }
    const auto opening = temporary.open();
    // Another server's file has come in between.
    const bool is_foreign = opening == TemporaryFile::Opening::ready && !temporary.is_new();
    return status_of(log, is_foreign ? TemporaryFile::Opening::in_use : opening, target_path,
                     temporary.path());
}

// What an earlier upload left goes, unless another upload holds it.
void discard_leftover(UploadClaim claim, const std::string& temp_path) {
    TemporaryFile leftover(std::move(claim), temp_path, {});
    const auto opening = leftover.open_existing();
    if (opening == TemporaryFile::Opening::ready || opening == TemporaryFile::Opening::obstacle) {
        kestin_unlink_safe(temp_path.c_str());
    }
}

// The file is in place already.
message::Status confirm_target(const OperationLog& log, const std::string& target_path,
                               std::int64_t size, const WritePolicy& policy) {
    if (policy.is_durable && !(kestin_sync_path(target_path.c_str()) &&
                               kestin_sync_path(parent_of(target_path).c_str()))) {
        log.error(system_cause(), "sync file failed (%s)", target_path.c_str());
        return message::status_rename_failed;
    }
    log_upload_end(log, target_path);
    record_upload(target_path, size);
    return message::status_ok;
}

// An earlier upload wrote all of it and broke off before its finish.
message::Status finish_temporary(const OperationLog& log, TemporaryFile& temporary,
                                 const std::string& target_path,
                                 const UploadAnnouncement& announcement) {
    temporary.begin(announcement.file_size, announcement.file_time);
    if (!temporary.settle() || !put_in_place(log, temporary, target_path)) {
        temporary.sync();
        return message::status_rename_failed;
    }
    log_upload_end(log, target_path);
    record_upload(target_path, announcement.file_size);
    return message::status_ok;
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
        return refuse_to_open(log, SystemCause{ENAMETOOLONG}, temp_path);
    }
    UploadClaim claim;
    const bool is_claimed = claim.claim_target(target_path, temp_path);
    const PathFacts target = kestin_look_at(target_path.c_str());
    // A root that isn't there yet is no place for a file: its temporary file would lie outside.
    if (target.is_directory || is_root(request.storage_id, request.user_id, target_path)) {
        log.warning("path is a directory (%s)", target_path.c_str());
        return message::status_path_is_directory;
    }
    if (target.is_unknown) {
        return refuse_to_open(log, system_cause(), temp_path);
    }
    const WritePolicy policy = service.write_policy();
    if (is_announced(facts_of_file(target),
                     {.size = request.file_size, .time = request.file_time})) {
        if (is_claimed) {
            discard_leftover(std::move(claim), temp_path);
        }
        response.offset = target.size;
        return confirm_target(log, target_path, target.size, policy);
    }
    if (!is_claimed) {
        return refuse_as_in_use(log, target_path);
    }
    auto temporary = std::make_unique<TemporaryFile>(std::move(claim), temp_path, policy);
    if (const auto status = open_temporary(log, *temporary, request.storage_id, target_path);
        status != message::status_ok) {
        return status;
    }
    return begin_upload(log, std::move(temporary), target_path, target,
                        {.encrypted = request.encrypted != 0,
                         .file_size = request.file_size,
                         .file_time = request.file_time},
                        response.offset);
}

// `target` was seen before the temporary file was locked. Unless nothing stood at either name,
// another server may have replaced the target since, so it is looked at again. A transfer that was
// running on this node ends where the new one begins, and every failure leaves it alone.
message::Status NorvaneTransmitNode::begin_upload(const OperationLog& log,
                                                  std::unique_ptr<TemporaryFile> temporary,
                                                  const std::string& target_path, PathFacts target,
                                                  UploadAnnouncement announcement,
                                                  std::int64_t& offset) {
    UploadFileTcpEvent::Pointer event = UploadFileTcpEvent::acquire();
    if (event == nullptr) {
        log.error("acquire new upload event failed (%s)", UploadFileTcpEvent::name);
        return message::status_acquire_event_failed;
    }
    if (target.exists || !temporary->is_new()) {
        target = kestin_look_at(target_path.c_str());
    }
    if (target.is_unknown) {
        return refuse_to_open(log, system_cause(), temporary->path());
    }
    const FileFacts written = temporary->is_new() ? FileFacts{} : facts_of_file(temporary->look());
    switch (plan_upload(facts_of_file(target), written,
                        {.size = announcement.file_size, .time = announcement.file_time})) {
        case UploadPlan::already_complete:
            kestin_unlink_safe(temporary->path().c_str());
            offset = target.size;
            return confirm_target(log, target_path, target.size, temporary->policy());
        case UploadPlan::finish_temporary:
            offset = written.size;
            return finish_temporary(log, *temporary, target_path, announcement);
        case UploadPlan::continue_temporary:
            offset = written.size;
            break;
        case UploadPlan::start_over:
            if (const auto status = start_over(log, *temporary, target_path);
                status != message::status_ok) {
                return status;
            }
    }
    announcement.target_stays = target.exists && !remove_file(log, KESTIN_LOG_WARNING, target_path);
    event->begin(std::move(temporary), target_path, announcement);
    set_connection_transmit_event(event.release());
    log.debug("upload file begin (%s)", target_path.c_str());
    return message::status_file_incomplete;
}
