#pragma once

#include <functional>

namespace bench {

// Runs `work` in a process of its own and gives its result as the exit code. Whatever that process
// has started is ended with it, also when a signal (SIGINT, SIGTERM, SIGHUP) ends the benchmark. To
// be called before the first thread is started.
int supervise(const std::function<int()>& work);

}  // namespace bench
