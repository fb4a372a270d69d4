#pragma once

namespace transmit::cli {

// From now on SIGINT doesn't end the process but sets a mark, once; a second one ends it.
void catch_interrupt();
bool interrupted();

}  // namespace transmit::cli
