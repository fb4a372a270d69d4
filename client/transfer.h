#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "client/rate_limiter.h"
#include "client/remote.h"

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
    bool already_there = false;     // of the same size and time: nothing was moved
    std::int64_t moved = 0;         // bytes of the file that went over the wire, twice if twice
    bool verified = false;          // read back, and the same by SHA-256
};

// How much of what an earlier attempt stored is compared with the source before it is gone on with.
enum class ResumeCheck {
    tail,  // the last 64 KiB
    all,
};

struct TransferOptions {
    bool encrypted = false;
    // Replaces a file by the bare conversation, which removes the old version before the new one
    // has come. Else the new one is sent under a side name and renamed over the old one.
    bool in_place = false;
    // Moves also what is there already with the same size and time.
    bool always = false;
    ResumeCheck check = ResumeCheck::tail;
    // Reads an upload back, or the source of a download again, and compares by SHA-256. What
    // differs starts over, once.
    bool verify = false;
    // Tells what would be moved and moves nothing; each report says so by `moved` = 0.
    bool dry_run = false;
    // The whole batch ends after this, whatever moves; 0: never. See RetryPolicy for standstill.
    std::chrono::seconds max_time{0};
    // Connections, one file each; none: four, or two for an upload of nothing but small files.
    std::optional<int> files_at_once;
    // Connections of one big download, if it is the only file. They share what is left of it, once
    // a second has shown that one connection would take longer than `single_stream` for that.
    int streams = 4;
    std::chrono::seconds single_stream{10};
    // Of all connections together, both directions; none: no limit.
    std::shared_ptr<RateLimiter> limiter;
};

}  // namespace transmit
