#include "src/norvane_transmit_node/file_steps.h"

#include <algorithm>
#include <cerrno>

#include "kestin_base/file_system.h"
#include "kestin_base/record.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

using namespace Kestin::Base;  // NOLINT(google-build-using-namespace): this file is all file system

bool find_storage(const OperationLog& log, std::uint32_t storage_id) {
    if (!NorvaneTransmitService::instance().is_storage_valid(storage_id)) {
        log.error("invalid storage id: %u", storage_id);
        return false;
    }
    return true;
}

message::Status examine_path(const OperationLog& log, const std::string& path, PathFacts& facts) {
    facts = kestin_look_at(path.c_str());
    const bool is_barred = facts.is_unknown && (errno == EACCES || errno == ELOOP);
    if (!facts.exists || is_barred) {
        return refuse_access(log, system_cause(), path);
    }
    if (!facts.is_examined) {
        log.error(system_cause(), "path stat failed (%s)", path.c_str());
        return message::status_path_stat_failed;
    }
    return message::status_ok;
}

message::Status refuse_access(const OperationLog& log, SystemCause cause, const std::string& path) {
    log.warning(cause, "can not access file (%s)", path.c_str());
    return message::status_access_failed;
}

bool remove_file(const OperationLog& log, KESTIN_LOG_LEVEL level, const std::string& path) {
    if (!kestin_chmod_safe(path.c_str())) {
        log.failure(level, system_cause(), "chmod file failed (%s)", path.c_str());
    }
    if (!kestin_unlink_safe(path.c_str())) {
        log.failure(level, system_cause(), "unlink file failed (%s)", path.c_str());
        return false;
    }
    return true;
}

bool put_in_place(const OperationLog& log, const TemporaryFile& temporary,
                  const std::string& target_path) {
    if (!kestin_rename_safe(temporary.path().c_str(), target_path.c_str())) {
        log.error(system_cause(), "rename file failed (%s) -> (%s)", temporary.path().c_str(),
                  target_path.c_str());
        return false;
    }
    const std::string folder = parent_of(target_path);
    if (temporary.policy().is_durable && !kestin_sync_path(folder.c_str())) {
        log.error(system_cause(), "sync folder failed (%s)", folder.c_str());
        return false;
    }
    return true;
}

void log_upload_end(const OperationLog& log, const std::string& target_path) {
    log.debug("upload file end (%s)", target_path.c_str());
}

bool make_directory(const std::string& path) {
    if (is_directory(path)) {
        return true;
    }
    kestin_create_directory_recursive(path);
    const SystemCause cause = system_cause();
    const bool made = is_directory(path);
    errno = cause.error_number;
    return made;
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

std::string parent_of(const std::string& path) {
    const std::size_t separator = path.find_last_of("\\/");
    return path.substr(0, std::max<std::size_t>(separator, 1));
}

FileFacts facts_of_file(const PathFacts& facts) {
    return {.exists = facts.is_regular, .size = facts.size, .time = facts.time};
}

void record_upload(const std::string& target_path, std::int64_t size) {
    kestin_record(Record::instance(), true, "remote upload file (%s) success, size is %I64d",
                  target_path.c_str(), size);
}
