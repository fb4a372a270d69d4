#pragma once

#include <string>

#include "kestin_base/file_system.h"
#include "src/message/status.h"
#include "src/norvane_transmit_node/upload_plan.h"
#include "src/shared/operation_log.h"
#include "src/tcp_event/temporary_file.h"

// Steps of several requests that need nothing of the node. Those that take a log write their
// failures to it.

// Whether a storage has that number.
bool find_storage(const OperationLog& log, std::uint32_t storage_id);

// Looks at what stands at a path. status_access_failed: nothing does, or a folder or a link on the
// way doesn't lead there; status_path_stat_failed: it can't be examined.
message::Status examine_path(const OperationLog& log, const std::string& path,
                             Kestin::Base::PathFacts& facts);
message::Status refuse_access(const OperationLog& log, SystemCause cause, const std::string& path);

// Deletes a file, a write-protected one too; `level` is that of a failure.
bool remove_file(const OperationLog& log, KESTIN_LOG_LEVEL level, const std::string& path);

// Gives a settled temporary file its final name, and replaces what file stands there. If uploads
// are durable, the name is on the disk afterwards.
bool put_in_place(const OperationLog& log, const TemporaryFile& temporary,
                  const std::string& target_path);
void log_upload_end(const OperationLog& log, const std::string& target_path);

// Whether there is a directory at `path` now: a missing one is made, with its parents. False, with
// errno telling why it couldn't be made.
bool make_directory(const std::string& path);

bool is_directory(const std::string& path);

// Whether a mapped path is the storage's own folder or the user's, be it there or not.
bool is_root(std::uint32_t storage_id, std::uint32_t user_id, const std::string& path);

// The folder that a path stands in.
std::string parent_of(const std::string& path);

// What an upload's plan needs to know of what stands at a path.
FileFacts facts_of_file(const Kestin::Base::PathFacts& facts);

// The record file's line for an upload that is in place.
void record_upload(const std::string& target_path, std::int64_t size);
