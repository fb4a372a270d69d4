#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "client/connection.h"
#include "client/detail/batch_run.h"
#include "client/detail/source_file.h"
#include "client/error.h"
#include "client/remote.h"

// Looks at files on the server by reading them. Each conversation ends an upload or download that
// runs on the connection.
namespace transmit::detail {

using Consumer = std::function<Result<void>(std::span<const iovec>)>;

// Reads a file from an offset to its end, and gives the size and time that it had.
Result<FileStamp> read_remote(Connection& connection, const BatchRun& run, const RemotePath& file,
                              std::int64_t offset, const Consumer& consume);

// SHA-256 of a whole file.
Result<std::string> remote_sha256(Connection& connection, const BatchRun& run,
                                  const RemotePath& file);

// Whether the file is the first `size` bytes of the source, as far as the options want it checked.
// A file that isn't there is not. One that changes meanwhile is refused as in use, which is worth
// another attempt.
Result<bool> begins_like(Connection& connection, const BatchRun& run, const RemotePath& file,
                         std::int64_t size, const SourceFile& source);

// Where a check of so many bytes that lie in front of `end`, and begin at `begin`, starts.
std::int64_t check_start(const TransferOptions& options, std::int64_t begin, std::int64_t end);

}  // namespace transmit::detail
