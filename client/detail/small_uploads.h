#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "client/batch.h"
#include "client/detail/batch_run.h"
#include "client/detail/remote_folders.h"
#include "client/detail/source_file.h"
#include "client/detail/upload_sender.h"

namespace transmit::detail {

// Sends small files of which the server has nothing, whole runs of them with one write: prepare,
// data and finish of each, before the answers of the former have come. Whatever isn't as expected
// is left to the careful way.
class SmallUploads {
  public:
    // All must outlive the object.
    SmallUploads(Worker& worker, RemoteFolders& folders, UploadSender& sender,
                 const std::vector<UploadJob>& jobs)
        : worker_(worker), folders_(folders), sender_(sender), jobs_(jobs) {}

    // Gives back the files that need the careful way.
    std::vector<std::size_t> move(const std::vector<std::size_t>& files);

  private:
    struct Staged {
        std::size_t file;
        SourceFile source;
    };

    std::vector<Staged> stage_all(Connection& connection, const std::vector<std::size_t>& files);
    std::optional<Staged> stage(Connection& connection, std::size_t file);
    std::vector<Staged> send_some(Connection& connection, std::vector<Staged>& staged);
    bool send(Connection& connection, const Staged& staged);
    Result<bool> conclude(Connection& connection, const Staged& sent);

    Worker& worker_;
    RemoteFolders& folders_;
    UploadSender& sender_;
    const std::vector<UploadJob>& jobs_;
    std::vector<std::size_t> left_;
};

}  // namespace transmit::detail
