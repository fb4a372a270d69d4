#pragma once

#include <ucontext.h>

#include <csignal>

// What the system tells a signal's handler about a fault: the signal and its cause, and the
// registers of the thread at the moment of the fault.
struct Fault {
    const siginfo_t* information;
    const ucontext_t* context;
};

// Writes an ELF core file of this process (core(5)), readable memory and registers of all threads,
// the faulting one first, for a debugger to open. Called in the fault's handler, once a process,
// and made of async-signal-safe calls only. All other threads stand still meanwhile. Where the
// system refuses to let a child trace them they run on, and the file holds the registers of this
// thread alone.
void write_core_dump(int file, const Fault& fault);
