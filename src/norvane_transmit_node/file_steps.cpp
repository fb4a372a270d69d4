#include "kestin_base/file_system.h"
#include "kestin_base/record.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/log_place.h"

using namespace Kestin::Base;  // NOLINT(google-build-using-namespace): this file is all file system

bool NorvaneTransmitNode::find_storage(std::uint32_t storage_id) {
    if (!NorvaneTransmitService::instance().is_storage_valid(storage_id)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] invalid storage id: %u", session_id(),
                       storage_id);
        return false;
    }
    return true;
}

message::Status NorvaneTransmitNode::examine_path(const std::string& path, PathFacts& facts) {
    facts = kestin_look_at(path.c_str());
    if (!facts.exists) {
        return refuse_access(path);
    }
    if (!facts.is_examined) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] path stat failed (%s)", session_id(),
                       path.c_str());
        return message::status_path_stat_failed;
    }
    return message::status_ok;
}

message::Status NorvaneTransmitNode::refuse_access(const std::string& path) {
    kestin_run_log(KESTIN_LOG_WARNING, LOG_PLACE, "[%I64u] can not access file (%s)", session_id(),
                   path.c_str());
    return message::status_access_failed;
}

bool NorvaneTransmitNode::remove_file(KESTIN_LOG_LEVEL level, const std::string& path) {
    if (!kestin_chmod_safe(path.c_str())) {
        kestin_run_log(level, LOG_PLACE, "[%I64u] chmod file failed (%s)", session_id(),
                       path.c_str());
    }
    if (!kestin_unlink_safe(path.c_str())) {
        kestin_run_log(level, LOG_PLACE, "[%I64u] unlink file failed (%s)", session_id(),
                       path.c_str());
        return false;
    }
    return true;
}

// The rename replaces what lies at the target as a rule; what it doesn't, it may when that is gone.
bool NorvaneTransmitNode::put_in_place(const std::string& temp_path,
                                       const std::string& target_path) {
    const auto rename = [&] {
        return kestin_rename_safe(temp_path.c_str(), target_path.c_str());
    };
    if (!rename() && !(kestin_access_safe(target_path.c_str()) &&
                       remove_file(KESTIN_LOG_ERROR, target_path) && rename())) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] rename file failed (%s) -> (%s)",
                       session_id(), temp_path.c_str(), target_path.c_str());
        return false;
    }
    return true;
}

bool NorvaneTransmitNode::set_time(const std::string& path, std::int64_t time) {
    if (!file_set_time(path.c_str(), time)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] set file time failed (%s)",
                       session_id(), path.c_str());
        return false;
    }
    return true;
}

void NorvaneTransmitNode::log_upload_end(const std::string& target_path) {
    kestin_debug_log(KESTIN_LOG_DEBUG, LOG_PLACE, "[%I64u] upload file end (%s)", session_id(),
                     target_path.c_str());
}

bool is_directory(const std::string& path) {
    bool is_directory = false;
    return kestin_path_is_directory(path.c_str(), is_directory) && is_directory;
}

bool is_root(std::uint32_t storage_id, std::uint32_t user_id, const std::string& path) {
    const auto& service = NorvaneTransmitService::instance();
    return path == service.make_transmit_path(storage_id, user_id, "", false) ||
           path == service.make_transmit_path(storage_id, 0, "", false);
}

FileFacts facts_of_file(const PathFacts& facts) {
    return {.exists = facts.exists, .size = facts.size, .time = facts.time};
}

FileFacts look_at_file(const std::string& path) {
    return facts_of_file(kestin_look_at(path.c_str()));
}

void record_upload(const std::string& target_path, std::int64_t size) {
    kestin_record(Record::instance(), true, "remote upload file (%s) success, size is %I64d",
                  target_path.c_str(), size);
}
