#pragma once

#include <sys/procfs.h>
#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "src/main/memory_map.h"

struct ThreadState {
    elf_prstatus status;
    elf_fpregset_t floating_point;
};

// What goes into a core file. `memory` is an open /proc/<pid>/mem, whose reads fail where memory
// can't be read in place of faulting.
struct ProcessState {
    std::span<const ThreadState> threads;  // the first one is what a debugger shows
    siginfo_t cause;
    elf_prpsinfo identity;
    std::string_view auxiliary_vector;
    const MemoryMap& map;
    int memory;
};

// Writes the core file from its beginning. Pages that hold nothing but zeros, or can't be read, are
// left as holes. False if the file takes no more. Async-signal-safe, not for two threads at once.
bool write_core_file(int file, const ProcessState& process);
