#include "client/detail/part_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <utility>

#include "client/detail/local_error.h"

namespace transmit::detail {
namespace {

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// True while the path still leads to the open file: another process may have given it its name.
bool leads_to(const std::string& path, const FileDescriptor& descriptor) {
    struct stat by_path {};
    struct stat by_descriptor {};
    return stat(path.c_str(), &by_path) == 0 && fstat(descriptor.get(), &by_descriptor) == 0 &&
           by_path.st_dev == by_descriptor.st_dev && by_path.st_ino == by_descriptor.st_ino;
}

Result<FileDescriptor> open_locked(const std::string& path) {
    while (true) {
        FileDescriptor descriptor(
            open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
        if (!descriptor.is_open()) {
            return local_error(path, "opened");
        }
        if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
            return Error{ErrorKind::local_file, 0, path + " is being written by another download"};
        }
        if (leads_to(path, descriptor)) {
            return descriptor;
        }
    }
}

// The memory of a part's source: its size and time as text, and a line end that proves it whole.
std::string info_text(const FileStamp& source) {
    return std::to_string(source.size) + " " + std::to_string(source.time) + "\n";
}

// Some file systems report a failed write only when the file is closed. A second descriptor of the
// same file is closed for that, since closing the first would give up the lock.
bool closes_well(const FileDescriptor& descriptor) {
    const int copy = fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0);
    return copy >= 0 && close(copy) == 0;
}

bool write_all(int descriptor, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(descriptor, data, size);
        if (written >= 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

Result<PartFile> PartFile::open(const std::string& target) {
    if (is_directory(target)) {
        return local_error(target, "replaced", EISDIR);
    }
    auto descriptor = open_locked(target + ".part");
    if (!descriptor) {
        return descriptor.error();
    }
    return PartFile(*std::move(descriptor), target);
}

PartFile::PartFile(FileDescriptor descriptor, std::string target)
    : descriptor_(std::move(descriptor)),
      target_(std::move(target)),
      part_(target_ + ".part"),
      info_(target_ + ".part.info") {
}

// The part is emptied before its memory changes: at no moment do bytes of one version stand beside
// the memory of another.
Result<std::int64_t> PartFile::prepare(const FileStamp& source) {
    struct stat status {};
    if (fstat(descriptor_.get(), &status) != 0) {
        return local_error(part_, "read");
    }
    source_ = source;
    if (holds(source) && status.st_size <= source.size) {
        return status.st_size;
    }
    if (ftruncate(descriptor_.get(), 0) != 0) {
        return local_error(part_, "written");
    }
    if (auto remembered = remember(source); !remembered) {
        return remembered.error();
    }
    return 0;
}

bool PartFile::holds(const FileStamp& source) const {
    std::ifstream file(info_, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    return text == info_text(source);
}

Result<void> PartFile::remember(const FileStamp& source) const {
    std::ofstream file(info_, std::ios::binary | std::ios::trunc);
    file << info_text(source) << std::flush;
    if (!file) {
        return local_error(info_, "written");
    }
    return {};
}

Result<void> PartFile::append(std::span<const iovec> pieces) {
    const ssize_t written =
        writev(descriptor_.get(), pieces.data(), static_cast<int>(pieces.size()));
    if (written < 0 && errno != EINTR) {
        return local_error(part_, "written");
    }
    // A short write is rare (a full disk, a signal): the rest goes piece by piece.
    auto done = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    for (const iovec& piece : pieces) {
        const std::size_t skipped = std::min(done, piece.iov_len);
        done -= skipped;
        if (!write_all(descriptor_.get(), static_cast<const char*>(piece.iov_base) + skipped,
                       piece.iov_len - skipped)) {
            return local_error(part_, "written");
        }
    }
    return {};
}

// A time that the file system can't hold is no reason to withhold the file.
Result<void> PartFile::complete() {
    const timespec times[2] = {{0, UTIME_NOW}, {source_.time, 0}};
    futimens(descriptor_.get(), times);
    if (!closes_well(descriptor_)) {
        return local_error(part_, "written");
    }
    if (std::rename(part_.c_str(), target_.c_str()) != 0) {
        return local_error(part_, "renamed to " + target_);
    }
    unlink(info_.c_str());
    return {};
}

}  // namespace transmit::detail
