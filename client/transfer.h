#pragma once

#include <cstdint>
#include <functional>

namespace transmit {

// How far a transfer has come, in bytes of the plain file. `resumed_from` was there before.
struct Progress {
    std::int64_t done = 0;
    std::int64_t total = 0;
    std::int64_t resumed_from = 0;
};

// Called after each piece that moved, so up to some thousand times a second.
using ProgressCallback = std::function<void(const Progress&)>;

// What a finished transfer was.
struct TransferReport {
    std::int64_t size = 0;          // of the whole file
    std::int64_t resumed_from = 0;  // bytes that an earlier attempt or run had brought
    bool already_there = false;     // an upload that had nothing to send
};

}  // namespace transmit
