#pragma once

#include <string>

#include "kestin_base/file_system.h"
#include "src/norvane_transmit_node/upload_plan.h"

// Steps of several requests that need nothing of the node.

bool is_directory(const std::string& path);

// Whether a mapped path is the storage's own folder or the user's, be it there or not.
bool is_root(std::uint32_t storage_id, std::uint32_t user_id, const std::string& path);

// What an upload's plan needs to know of what stands at a path; size and time are 0 where they
// can't be told.
FileFacts facts_of_file(const Kestin::Base::PathFacts& facts);
FileFacts look_at_file(const std::string& path);

// The record file's line for an upload that is in place.
void record_upload(const std::string& target_path, std::int64_t size);
