#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/rate_limiter.h"
#include "client/remote.h"

namespace transmit {

// True if a file could have changed after it was seen without showing it: times are whole seconds,
// and so one of the last two says nothing about the content. Nor does one in the future.
inline bool may_still_change(std::int64_t file_time) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return file_time >= std::chrono::floor<std::chrono::seconds>(now).count() - 2;
}

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
    // Follows symbolic links below the target folder of a downloaded tree.
    bool follow_links = false;
    // Replaces a file by the bare conversation, which removes the old version before the new one
    // has come. Else the new one is sent under a side name and renamed over the old one.
    bool in_place = false;
    // The server's suffix for temporary files; empty: unknown. With a wrong one, files that users
    // gave such names may be lost.
    std::string server_suffix = ".tcp";
    // Moves also what is there already with the same size and time.
    bool always = false;
    // Decides by content (SHA-256), not by time, whether a file of the same size is there already.
    bool checksum = false;
    ResumeCheck check = ResumeCheck::tail;
    // Reads an upload back, or the source of a download again, and compares by SHA-256; compares
    // what is there already too. What differs is moved again.
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
