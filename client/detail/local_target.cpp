#include "client/detail/local_target.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "client/detail/file_io.h"
#include "client/detail/local_error.h"
#include "client/detail/sha256.h"

namespace transmit::detail {
namespace {

// Enough to work in a folder whose content can't be listed.
constexpr int folder_flags = O_PATH | O_DIRECTORY | O_CLOEXEC;

const char* kind_of(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a folder";
        case S_IFLNK:
            return "a symbolic link";
        case S_IFIFO:
            return "a named pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

bool is_link(int folder, const std::string& name) {
    struct stat status {};
    return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(status.st_mode);
}

// The error of a component of a path that couldn't be entered.
Error entry_error(int folder, const std::string& name, const std::string& path, int error) {
    if (is_link(folder, name)) {
        return {ErrorKind::local_file, 0,
                path + " is a symbolic link; --follow-links follows links below the target"};
    }
    return local_error(path, "entered", error);
}

}  // namespace

Result<LocalFolder> LocalFolder::make(const Place& place) {
    std::error_code ignored;
    std::filesystem::create_directories(place.root, ignored);
    return enter(place, true);
}

Result<LocalFolder> LocalFolder::open(const Place& place) {
    return enter(place, false);
}

Result<LocalFolder> LocalFolder::enter(const Place& place, bool makes) {
    const std::string root = place.root.empty() ? "." : place.root;
    FileDescriptor folder(::open(root.c_str(), folder_flags));
    if (!folder.is_open()) {
        return local_error(root, "entered");
    }
    const int flags = folder_flags | (place.follow_links ? 0 : O_NOFOLLOW);
    std::string path = place.root;
    for (const auto& component : std::filesystem::path(place.below)) {
        const std::string name = component.string();
        if (name.empty() || name == "/") {
            continue;
        }
        path += (path.empty() || path.ends_with('/') ? "" : "/") + name;
        FileDescriptor next(openat(folder.get(), name.c_str(), flags));
        if (!next.is_open() && errno == ENOENT && makes) {
            mkdirat(folder.get(), name.c_str(), 0777);
            next = FileDescriptor(openat(folder.get(), name.c_str(), flags));
        }
        if (!next.is_open()) {
            return entry_error(folder.get(), name, path, errno);
        }
        folder = std::move(next);
    }
    return LocalFolder(std::move(folder));
}

std::optional<FileStamp> stamp_of(const LocalTarget& target) {
    struct stat status {};
    if (fstatat(target.folder->descriptor(), target.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) !=
            0 ||
        !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileStamp{status.st_size, status.st_mtim.tv_sec};
}

Result<std::string> sha256_of(const LocalTarget& target, std::int64_t size,
                              const std::function<bool()>& cancelled) {
    const FileDescriptor file(openat(target.folder->descriptor(), target.name.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.is_open()) {
        return local_error(target.path, "read");
    }
    const auto read = [&](void* data, std::size_t wanted, std::int64_t offset) -> Result<void> {
        const ssize_t count = read_at(file.get(), data, wanted, offset);
        if (count < 0) {
            return local_error(target.path, "read");
        }
        if (static_cast<std::size_t>(count) < wanted) {
            return Error{ErrorKind::file_changed, 0,
                         target.path + " became shorter while it was compared"};
        }
        return {};
    };
    return sha256_of(size, read, cancelled);
}

Result<void> can_be_replaced(const LocalTarget& target) {
    struct stat status {};
    if (fstatat(target.folder->descriptor(), target.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) !=
        0) {
        return errno == ENOENT ? Result<void>() : local_error(target.path, "replaced");
    }
    if (S_ISREG(status.st_mode)) {
        return {};
    }
    return Error{
        ErrorKind::local_file, 0,
        target.path + " is " + kind_of(status.st_mode) + "; only a regular file is replaced"};
}

}  // namespace transmit::detail
