#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/error.h"
#include "client/remote.h"
#include "client/retrying_connection.h"
#include "client/transfer.h"
#include "client/transfer_observer.h"
#include "client/wait_limits.h"

// Many files at once: each worker has a connection and takes one file after the other.
namespace transmit {

// True once a wait is to end.
using Cancelled = std::function<bool()>;
// Bytes from somewhere else than a file: fills part of the memory; 0 is the end. Asks `cancelled`
// now and then while it waits.
using ByteSource = std::function<Result<std::size_t>(std::span<char>, const Cancelled& cancelled)>;
// Takes all of the pieces, in order. Asks `cancelled` now and then while it waits.
using ByteSink = std::function<Result<void>(std::span<const iovec>, const Cancelled& cancelled)>;

struct UploadJob {
    std::string local_path;
    RemotePath target;  // the file's path on the server, its name included
    // Read in place of `local_path`. It is spooled to an unnamed file of the folder for temporary
    // files first, since the wire wants the size beforehand; the file gets the present time.
    ByteSource source;
    // The name that the file gets in it if the target proves a folder; empty: that is an error.
    std::string name_in_folder{};
    // As it was found, so that small files are known for what they are: they go out in runs.
    std::optional<std::int64_t> size{};
};

struct DownloadJob {
    RemotePath source;
    std::string local_path;  // its name included. Folders are made; of what lies there only a
                             // regular file is replaced
    // Written to in place of `local_path`. What it took can't be taken back: a source that changes
    // on the way is an error then.
    ByteSink sink;
    // As a listing told, so that what is there already needs no question.
    std::optional<FileStamp> stamp;
    // The folder at the start of `local_path` that the user named. Below it, in folders that the
    // server named, no link is followed unless TransferOptions::follow_links. Empty: the user named
    // the file's whole folder.
    std::string root{};
};

// What of a tree can't be moved, and why: a name that the other side would take for something else,
// a folder that can't be read, an entry that is neither file nor folder.
struct Refusal {
    std::string path;
    Error error;
};

struct UploadBatch {
    std::vector<UploadJob> files;
    std::vector<RemotePath> folders;  // made if missing, for those that hold no file
    std::vector<Refusal> refused;     // counted as failed
};

// A folder of this machine, below the root that no link may lead out of.
struct DownloadFolder {
    std::string root;
    std::string below;
};

struct DownloadBatch {
    std::vector<DownloadJob> files;
    std::vector<DownloadFolder> folders;
    std::vector<Refusal> refused;
};

// All files and folders below `local_folder`, to lie below `target` in the same way. Links are
// followed to files; to folders they are refused, since they may lead in a circle. `cancelled` ends
// it.
Result<UploadBatch> upload_tree(const std::string& local_folder, const RemotePath& target,
                                const Cancelled& cancelled = {});
// The other way round. No name leads out of `local_folder`.
Result<DownloadBatch> download_tree(RetryingConnection& server, const RemotePath& source,
                                    const std::string& local_folder);

// How to reach a server, and how patiently.
struct Server {
    Endpoint endpoint;
    WaitLimits limits;
    RetryPolicy retry;
};

struct FileFailure {
    std::size_t file;  // its place in the batch's list
    Error error;
};

struct TransferSummary {
    std::size_t done = 0;
    std::size_t already_there = 0;  // not among `done`
    std::vector<FileFailure> failed;
    std::vector<Refusal> refused;  // of the batch, and folders that couldn't be made
    std::int64_t moved = 0;        // bytes of files that went over the wire
    // What ended the whole before its time: no connection, the time limit, the caller's wish. Files
    // that weren't begun are in no count.
    std::optional<Error> stopped;

    bool complete() const { return failed.empty() && refused.empty() && !stopped; }
};

// Move a batch and come back when all is done. WaitLimits::cancelled, which several threads ask,
// ends them within a second; what has come stays and is gone on with by another run.
TransferSummary upload_files(const Server& server, const UploadBatch& batch,
                             const TransferOptions& options, TransferObserver& observer);
TransferSummary download_files(const Server& server, const DownloadBatch& batch,
                               const TransferOptions& options, TransferObserver& observer);

}  // namespace transmit
