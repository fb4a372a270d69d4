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

// Sends small files of which the server has nothing, one round trip each: the data and the finish
// of one go out in one write with the prepare of the next. Whatever isn't as expected is left to
// the careful way.
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
        bool ready = false;  // the server waits for its data
    };

    Result<void> move_on(Connection& connection, std::optional<Staged>& current,
                         std::optional<Staged>& next);
    std::optional<Staged> stage(Connection& connection, std::size_t file);
    Result<void> send(Connection& connection, const std::optional<Staged>& current,
                      const std::optional<Staged>& next);
    Result<void> conclude(Connection& connection, const Staged& current);
    Result<void> await_readiness(Connection& connection, Staged& next);
    void leave(const std::optional<Staged>& staged);

    Worker& worker_;
    RemoteFolders& folders_;
    UploadSender& sender_;
    const std::vector<UploadJob>& jobs_;
    std::vector<std::size_t> left_;
    bool is_claimed_ = false;  // an upload has begun that isn't to be gone on with here
};

}  // namespace transmit::detail
