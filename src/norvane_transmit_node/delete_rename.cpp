#include "kestin_base/file_system.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

using Kestin::Base::kestin_access_safe;
using Kestin::Base::kestin_chmod_safe;
using Kestin::Base::kestin_look_at;
using Kestin::Base::kestin_remove_directory_recursive;
using Kestin::Base::kestin_rename_safe;
using Kestin::Base::kestin_same_file;
using Kestin::Base::kestin_unlink_safe;
using Kestin::Base::PathFacts;

namespace {

// The longest path that system calls take, in bytes. Nothing of a longer one can be told.
constexpr std::size_t longest_path = 4095;

// What kept the path from being deleted, if it is still there afterwards.
SystemCause delete_path(const std::string& path) {
    const PathFacts facts = kestin_look_at(path.c_str());
    if (facts.is_unknown) {
        return system_cause();
    }
    if (facts.is_directory) {
        kestin_remove_directory_recursive(path);
    } else if (facts.exists) {
        kestin_chmod_safe(path.c_str());
        kestin_unlink_safe(path.c_str());
    }
    return system_cause();
}

// A file at the new path stays until the rename itself replaces it, so that no failure loses it. On
// false errno tells why.
bool rename_path(const OperationLog& log, const std::string& from, const std::string& to) {
    const PathFacts target = kestin_look_at(to.c_str());
    if (target.is_unknown || !kestin_access_safe(from.c_str())) {
        return false;
    }
    if (kestin_same_file(from.c_str(), to.c_str())) {
        errno = EEXIST;
        return false;
    }
    if (target.is_directory) {
        log.error(SystemCause{EISDIR}, "unlink file failed (%s)", to.c_str());
    }
    return kestin_rename_safe(from.c_str(), to.c_str());
}

}  // namespace

// What stands at the path afterwards decides, so that deleting what isn't there is done.
message::Status NorvaneTransmitNode::do_handle_delete_path_request(
    const message::PathRequest& request, const std::string& path) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const std::string full_path = NorvaneTransmitService::instance().make_transmit_path(
        request.storage_id, request.user_id, path.c_str(), false);
    // A root would take everything at once.
    const bool is_too_long = full_path.size() > longest_path;
    const bool is_refused = is_too_long || is_root(request.storage_id, request.user_id, full_path);
    const SystemCause cause =
        is_refused ? SystemCause{is_too_long ? ENAMETOOLONG : EBUSY} : delete_path(full_path);
    if (is_refused || kestin_access_safe(full_path.c_str())) {
        log.error(cause, "delete path (%s) failed", full_path.c_str());
        return message::status_delete_failed;
    }
    return message::status_ok;
}

message::Status NorvaneTransmitNode::do_handle_rename_path_request(
    const message::RenamePathRequest& request, const std::string& old_path,
    const std::string& new_path) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const auto& service = NorvaneTransmitService::instance();
    const std::string from =
        service.make_transmit_path(request.storage_id, request.user_id, old_path.c_str(), false);
    const std::string to =
        service.make_transmit_path(request.storage_id, request.user_id, new_path.c_str(), false);
    const bool is_refused = is_root(request.storage_id, request.user_id, from) ||
                            is_root(request.storage_id, request.user_id, to);
    if (is_refused || !rename_path(log, from, to)) {
        log.error(is_refused ? SystemCause{EBUSY} : system_cause(),
                  "rename path failed (%s) -> (%s)", from.c_str(), to.c_str());
        return message::status_rename_failed;
    }
    return message::status_ok;
}
