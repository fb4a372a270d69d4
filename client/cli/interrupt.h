#pragma once

namespace transmit::cli {

// From now on SIGINT and SIGTERM don't end the process but set a mark; the second one of a kind
// ends it. SIGUSR1 sets a mark of its own, again and again.
void catch_signals();

// SIGINT or SIGTERM, whichever came first; 0 as long as neither has come.
int ending_signal();
bool interrupted();

// True once for each mark that SIGUSR1 has set.
bool take_report_wish();

}  // namespace transmit::cli
