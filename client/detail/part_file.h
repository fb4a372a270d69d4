#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <span>
#include <string>

#include "client/detail/file_descriptor.h"
#include "client/error.h"
#include "client/remote.h"

namespace transmit::detail {

// A file on its way from the server: it grows as TARGET.part and takes the target's name when it is
// whole. Beside it TARGET.part.info remembers of which version of the source it is, so that another
// run can go on. One process at a time works on a part.
class PartFile {
  public:
    static Result<PartFile> open(const std::string& target);

    // Makes it the part of this version of the source and gives its size, which is where to go on:
    // 0 if what lies there is of another version.
    Result<std::int64_t> prepare(const FileStamp& source);
    // At most 1024 pieces (IOV_MAX), in order, behind what is there.
    Result<void> append(std::span<const iovec> pieces);
    // Gives the file the source's time and the target's name.
    Result<void> complete();

  private:
    PartFile(FileDescriptor descriptor, std::string target);

    bool holds(const FileStamp& source) const;
    Result<void> remember(const FileStamp& source) const;

    FileDescriptor descriptor_;
    std::string target_;
    std::string part_;
    std::string info_;
    FileStamp source_;
};

}  // namespace transmit::detail
