#pragma once

#include <cstdint>
#include <string>

namespace bench {

// Serves the wire as barely as one can with reads and writes, a thread for each connection: no
// storages, no claims, no resume, no look at what is there already. An upload goes to a temporary
// name, gets its time and is renamed, as the wire promises. Prints "ready" when it listens; doesn't
// return.
[[noreturn]] void serve_raw_limit(std::uint16_t port, const std::string& folder);

}  // namespace bench
