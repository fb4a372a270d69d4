#pragma once

#include "src/main/core_dump.h"

// Installs the filter for faults that end the process: SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT,
// and with the last uncaught exceptions. The first statement of `main`. Threads started later call
// use_alternate_stack (alternate_stack.h).
void install_crash_filter();

// Runs on the thread that faulted, in the signal's handler, and takes no lock of the program.
// Writes dump/YYYYMMDDhhmmss.dump (local time) beside the executable and ends the process with
// status 0xAD; no destructor runs. Returns 1, with nothing changed, if that file can't be created:
// the process then ends by the signal. A thread that faults while another writes its dump waits
// for the end.
int crash_filter(const Fault& fault);
