#pragma once

#include <string>

#include "client/error.h"
#include "client/remote.h"
#include "client/retrying_connection.h"
#include "client/transfer.h"

namespace transmit {

struct Download {
    RemotePath source;
    std::string local_path;  // the file to write, its name included; an older one is replaced
    bool encrypted = false;
};

// Fetches a file with its time. It grows as `local_path` + ".part", beside which ".part.info"
// remembers the size and time of the source, and takes its name when it is whole. Both stay after
// an error or a cancellation, and a later download goes on from there if the source is still the
// same. A source that turns out longer or shorter than announced is an error of kind file_changed.
Result<TransferReport> download_file(RetryingConnection& server, const Download& download,
                                     const ProgressCallback& progress = {});

}  // namespace transmit
