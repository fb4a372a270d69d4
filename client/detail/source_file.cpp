#include "client/detail/source_file.h"

#include <fcntl.h>

#include <utility>

#include "client/detail/local_error.h"

namespace transmit::detail {
namespace {

Error changed(const std::string& path) {
    return {ErrorKind::file_changed, 0, path + " changed while it was sent"};
}

}  // namespace

// Without blocking, so that a pipe without a writer is refused rather than waited for.
Result<SourceFile> SourceFile::open(const std::string& path) {
    FileDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!descriptor.is_open() || fstat(descriptor.get(), &status) != 0) {
        return local_error(path, "read");
    }
    if (!S_ISREG(status.st_mode)) {
        return local_error(path, "sent", S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    return SourceFile(std::move(descriptor), path, status);
}

SourceFile::SourceFile(FileDescriptor descriptor, std::string path, const struct stat& status)
    : descriptor_(std::move(descriptor)),
      path_(std::move(path)),
      stamp_{status.st_size, status.st_mtim.tv_sec},
      modified_(status.st_mtim) {
}

Result<void> SourceFile::read(void* data, std::size_t size, std::int64_t offset) const {
    auto* place = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t count = pread(descriptor_.get(), place, size, offset);
        if (count == 0) {
            return changed(path_);
        }
        if (count > 0) {
            place += count;
            size -= static_cast<std::size_t>(count);
            offset += count;
        } else if (errno != EINTR) {
            return local_error(path_, "read");
        }
    }
    return {};
}

Result<void> SourceFile::unchanged() const {
    struct stat status {};
    if (fstat(descriptor_.get(), &status) != 0) {
        return local_error(path_, "read");
    }
    if (status.st_size != stamp_.size || status.st_mtim.tv_sec != modified_.tv_sec ||
        status.st_mtim.tv_nsec != modified_.tv_nsec) {
        return changed(path_);
    }
    return {};
}

}  // namespace transmit::detail
