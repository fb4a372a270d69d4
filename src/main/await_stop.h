#pragma once

// Waits until the standard input gives a line that is exactly "exit", or a stop signal comes
// (stop_signals.h). Called by the main thread.
void await_stop();
