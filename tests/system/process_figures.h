#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// What the system says of a running process, from proc(5).
namespace process_figures {

// Resident memory now and at its highest since the start, in bytes.
std::uint64_t resident_memory(pid_t pid);
std::uint64_t peak_resident_memory(pid_t pid);

std::size_t open_descriptors(pid_t pid);

}  // namespace process_figures
