#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <span>

#include "src/main/core_file.h"

// Holds all threads of another process by ptrace(2), from `stop` until the calling process ends,
// and tells their registers. Async-signal-safe; meant to be a static object.
class StoppedThreads {
  public:
    // `first` is the thread that comes first. False if the system refuses.
    bool stop(pid_t process, pid_t first);

    std::span<ThreadState> states() { return {states_.data(), count_}; }

  private:
    bool seize_new(pid_t process);
    bool seize(pid_t thread);
    void await_stop(pid_t thread);
    void read_states();

    // Threads beyond this number are left running and out.
    static constexpr std::size_t max_threads = 1024;
    // A thread that the kernel holds in an operation of its own can't stop and is left out too;
    // all such threads together are waited for no longer than this.
    static constexpr int max_wait_milliseconds = 500;

    std::array<pid_t, max_threads> seized_{};
    std::size_t seized_count_ = 0;
    std::array<ThreadState, max_threads> states_{};
    std::size_t count_ = 0;
    int waited_milliseconds_ = 0;
};
