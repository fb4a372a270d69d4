#pragma once

#include <cstdint>
#include <string>

// The least that any program does to move a file over this wire with reads and writes: for a
// download one buffer of 64 KiB is read and sent with the 8-byte header before it, for an upload
// what is received is written as it stands; with the cipher in between where the transfer is
// encrypted. It knows no storages and no resume, serves one connection at a time, looks for nothing
// and checks nothing. Runs until the process is ended.
[[noreturn]] void serve_raw_limit(std::uint16_t port, const std::string& folder);
