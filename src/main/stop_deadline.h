#pragma once

#include <chrono>

// Starts a thread that ends the process with `exit_code`, without destructors, when `limit` has
// passed: what still hangs then, a callback or a write on a disk that does not answer, must not
// keep the process.
void end_process_after(std::chrono::seconds limit, int exit_code);
