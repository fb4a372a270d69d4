#pragma once

#include <chrono>

namespace transmit::cli {

// From now on SIGINT and SIGTERM don't end the process but set a mark; the second one of a kind
// ends it. SIGUSR1 sets a mark of its own, again and again.
void catch_signals();

// From now on the program has so long to end; 0: as long as it likes.
void set_time_limit(std::chrono::seconds limit);

// SIGINT or SIGTERM, whichever came first; 0 as long as neither has come.
int ending_signal();
// True once a signal has come or the time limit has passed.
bool interrupted();

// True once for each mark that SIGUSR1 has set.
bool take_report_wish();

}  // namespace transmit::cli
