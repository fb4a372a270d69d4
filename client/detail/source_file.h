#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "client/batch.h"
#include "client/detail/file_descriptor.h"
#include "client/error.h"
#include "client/remote.h"

namespace transmit::detail {

// The file that an upload reads, and whether it is still the one that was announced.
class SourceFile {
  public:
    static Result<SourceFile> open(const std::string& path);

    // A stream read to its end into an unnamed file, which never changes. Its time is the present.
    static Result<SourceFile> spool(const ByteSource& source, const Cancelled& cancelled);

    // The same path, as it is now.
    Result<SourceFile> reopened() const { return open(path_); }

    const FileStamp& stamp() const { return stamp_; }
    // `size` bytes from `offset` on; file_changed if the file ends before.
    Result<void> read(void* data, std::size_t size, std::int64_t offset) const;
    // file_changed if size or time, to the nanosecond, aren't those of the opening any more.
    Result<void> unchanged() const;
    Result<std::string> sha256(const std::function<bool()>& cancelled) const;

  private:
    SourceFile(FileDescriptor descriptor, std::string path, const struct stat& status);

    FileDescriptor descriptor_;
    std::string path_;
    FileStamp stamp_;
    timespec modified_;
};

}  // namespace transmit::detail
