#include "client/detail/source_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <utility>
#include <vector>

#include "client/detail/file_io.h"
#include "client/detail/local_error.h"
#include "client/detail/sha256.h"

namespace transmit::detail {
namespace {

Error changed(const std::string& path) {
    return {ErrorKind::file_changed, 0, path + " changed while it was sent"};
}

constexpr std::size_t piece_size = 256UL * 1024;

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

Result<SourceFile> SourceFile::spool(const ByteSource& source, const Cancelled& cancelled) {
    std::error_code error;
    const std::string folder = std::filesystem::temp_directory_path(error).string();
    FileDescriptor descriptor(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (error || !descriptor.is_open()) {
        return local_error("a temporary file in " + folder, "made");
    }
    std::vector<char> piece(piece_size);
    for (std::int64_t end = 0;;) {
        if (cancelled && cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        const auto size = source(piece, cancelled);
        if (!size) {
            return size.error();
        }
        if (*size == 0) {
            break;
        }
        if (!write_at(descriptor.get(), piece.data(), *size, end)) {
            return local_error("a temporary file in " + folder, "written");
        }
        end += static_cast<std::int64_t>(*size);
    }
    struct stat status {};
    fstat(descriptor.get(), &status);
    return SourceFile(std::move(descriptor), "the stream", status);
}

SourceFile::SourceFile(FileDescriptor descriptor, std::string path, const struct stat& status)
    : descriptor_(std::move(descriptor)),
      path_(std::move(path)),
      stamp_{status.st_size, status.st_mtim.tv_sec},
      modified_(status.st_mtim) {
}

Result<void> SourceFile::read(void* data, std::size_t size, std::int64_t offset) const {
    const ssize_t count = read_at(descriptor_.get(), data, size, offset);
    if (count < 0) {
        return local_error(path_, "read");
    }
    return static_cast<std::size_t>(count) < size ? changed(path_) : Result<void>();
}

Result<std::string> SourceFile::sha256(const std::function<bool()>& cancelled) const {
    return sha256_of(
        stamp_.size,
        [this](void* data, std::size_t size, std::int64_t offset) {
            return read(data, size, offset);
        },
        cancelled);
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
