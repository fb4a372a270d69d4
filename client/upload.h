#pragma once

#include <string>

#include "client/error.h"
#include "client/remote.h"
#include "client/retrying_connection.h"
#include "client/transfer.h"

namespace transmit {

struct Upload {
    std::string local_path;  // a regular file
    RemotePath target;       // the file's path on the server, its name included
    bool encrypted = false;
};

// Sends a file with its size and time. What an interrupted upload of the same file left on the
// server isn't sent again, and a file that is there already not at all. A file that changes while
// it is sent is an error of kind file_changed, and the server keeps it out of sight.
Result<TransferReport> upload_file(RetryingConnection& server, const Upload& upload,
                                   const ProgressCallback& progress = {});

}  // namespace transmit
