#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace transmit::detail {

// Reads from `offset` on until the memory is full or the file ends. Returns how many bytes came, or
// -1 with errno.
ssize_t read_at(int descriptor, void* data, std::size_t size, std::int64_t offset);

// Writes all of it at `offset`. False with errno if that fails.
bool write_at(int descriptor, const char* data, std::size_t size, std::int64_t offset);

}  // namespace transmit::detail
