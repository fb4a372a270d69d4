#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace bench {

// Figures from proc(5) of a process together with all that it has started.

std::vector<pid_t> children_of(pid_t process);

// Processor time, user and system, also of those that have ended; in steps of a clock tick.
std::chrono::duration<double> processor_time(pid_t process);

// Bytes of memory in use.
std::int64_t resident_memory(pid_t process);

}  // namespace bench
