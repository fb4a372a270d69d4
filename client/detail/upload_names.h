#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "client/batch.h"
#include "client/detail/remote_folders.h"

namespace transmit::detail {

// The names on the server that a batch of uploads has to keep clear of each other. A server keeps
// the data of a running upload beside its target, under the target's name and a suffix, and sets
// aside what proves too short or too long; a file that a user gave such a name is in danger.
class UploadNames {
  public:
    // `suffix` is the server's for temporary files; empty: unknown.
    UploadNames(const std::vector<UploadJob>& jobs, std::string suffix);

    const std::string& suffix() const { return suffix_; }

    // True if another file of the batch has the name of the target's temporary file, or that name
    // is longer than file systems take.
    bool endangers(std::string_view target) const;
    // True if the target's folder or the batch has a file under a name that the server uses for an
    // upload to the target.
    bool endangers(std::string_view target, const FolderContent& folder) const;

    // Where a new version of the target is sent while the old one stays: always the same path for a
    // target, so that another run finds what an earlier one left.
    std::string side_path(std::string_view target) const;

  private:
    std::string suffix_;
    std::unordered_set<std::string> special_;  // targets whose names a server or this program uses
};

}  // namespace transmit::detail
