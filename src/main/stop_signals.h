#pragma once

#include <csignal>

// How the process meets signals:
//
// - SIGTERM and SIGHUP ask it to stop; SIGHUP does not if it was ignored at start, as nohup(1)
// does.
// - SIGPIPE and SIGXFSZ are ignored: the write fails instead, with EPIPE or EFBIG.
// - SIGTTIN and SIGTTOU are ignored: a background job reads EIO from its terminal instead of being
//   stopped, and its output goes to the terminal.
// - All others, SIGINT among them, keep the action that they had at start.
//
// All of these functions are the main thread's.

// Sets this up, before any other thread starts and before anything is written. From here on the
// stop signals are blocked, in this thread and in those that it starts.
void prepare_signals();

// Whether a stop signal has come.
bool stop_was_signalled();

// The signal mask of a wait that a stop signal ends: ppoll(2) with it returns EINTR.
sigset_t mask_of_wait();

// Called when the stop begins. All stop signals up to here count as one; from here on the second
// one ends the process at once. Threads that start later take stop signals too.
void end_at_second_stop_signal();
