#pragma once

#include <cstdint>
#include <string>

namespace transmit {

// Where a server listens.
struct Endpoint {
    std::string host = "127.0.0.1";  // an IPv4 address or a name
    std::uint16_t port = 30000;

    bool operator==(const Endpoint&) const = default;
};

// A file or folder on the server. The path is bytes, at most 65535; the server takes `/` and `\` as
// separators and resolves `.` and `..` inside the storage. User 0 means no user.
struct RemotePath {
    std::uint32_t storage_id = 1;
    std::uint32_t user_id = 0;
    std::string path;
};

// What tells one version of a file from another: its size in bytes and its modification time in
// whole seconds since 1970-01-01 UTC, rounded down.
struct FileStamp {
    std::int64_t size = 0;
    std::int64_t time = 0;

    bool operator==(const FileStamp&) const = default;
};

}  // namespace transmit
