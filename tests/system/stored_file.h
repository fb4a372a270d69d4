#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Files of a storage, as they lie on the disk.
namespace stored_file {

// Creates or replaces the file, and the folders above it, with that modification time in whole
// seconds since 1970-01-01 UTC.
void put(const std::string& path, std::string_view bytes, std::int64_t time = 1000);

std::int64_t time_of(const std::string& path);

// Links count for themselves, wherever they point.
bool exists(const std::string& path);

}  // namespace stored_file
