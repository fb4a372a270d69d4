#pragma once

#include <ucontext.h>

#include "src/main/core_file.h"

// Sets a thread's registers to those of the moment of its fault, as the kernel saved them for the
// signal's handler. What isn't saved there stays as it is. On processors other than x86-64 nothing
// is changed, and a debugger finds the fault below the frames of the handler.
void restore_fault_registers(const ucontext_t& context, ThreadState& thread);

// Of the calling thread: what of its registers isn't saved for a handler.
void read_own_registers(ThreadState& thread);
