#pragma once

#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "client/batch.h"
#include "client/detail/local_target.h"
#include "client/detail/part_file.h"

namespace transmit::detail {

// The targets of a batch whose names have the form of work names. There are hardly ever any, but no
// work file may get in their way.
std::unordered_set<std::string> targets_like_work_files(const std::vector<DownloadJob>& jobs);

// Opens the folders of downloads, for one thread. Files of one folder follow each other, so the
// last one is kept.
class DownloadTargets {
  public:
    // `reserved` must outlive the object.
    DownloadTargets(const std::unordered_set<std::string>& reserved, bool follow_links)
        : reserved_(reserved), follow_links_(follow_links) {}

    // Makes missing folders.
    Result<LocalTarget> make(const DownloadJob& job);
    // Makes nothing: missing_file if the folder isn't there.
    Result<LocalTarget> find(const DownloadJob& job);

    // Which names beside the target files of the batch get.
    IsReserved reserved_beside(const LocalTarget& target) const;

  private:
    Result<LocalTarget> open(const DownloadJob& job, bool makes);

    const std::unordered_set<std::string>& reserved_;
    const bool follow_links_;
    LocalFolder::Place place_;
    std::shared_ptr<const LocalFolder> folder_;  // of `place_`, or null
};

}  // namespace transmit::detail
