#include "kestin_base/file_system.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kestin_base/detail/descriptor.h"
#include "kestin_base/detail/facts.h"
#include "kestin_base/detail/file_mode.h"
#include "kestin_base/detail/new_times.h"
#include "kestin_base/path.h"

namespace Kestin::Base {
namespace {

using detail::examine;
using detail::examine_link;

// Whether something may stand at a path that has just failed to be examined.
bool may_exist() {
    return errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG;
}

// The path without links; empty if it can't be examined.
std::string resolve(const char* path) {
    char* resolved = ::realpath(path, nullptr);
    std::string text = resolved == nullptr ? "" : resolved;
    std::free(resolved);
    return text;
}

// Puts the directory `from` in the place of the file at `to`: the two change places in one step,
// then the file goes.
bool replace_file_by_directory(const char* from, const char* to) {
    const auto exchange = [&] {
        return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0;
    };
    if (!exchange()) {
        return false;
    }
    if (kestin_unlink_safe(from)) {
        return true;
    }
    exchange();
    return false;
}

}  // namespace

bool kestin_access_safe(const char* path) {
    struct stat facts {};
    return examine_link(path, facts) || may_exist();
}

bool kestin_path_is_directory(const char* path, bool& is_directory) {
    struct stat facts {};
    if (!examine(path, facts)) {
        return false;
    }
    is_directory = S_ISDIR(facts.st_mode);
    return true;
}

bool kestin_same_file(const char* one, const char* other) {
    struct stat first {};
    struct stat second {};
    return examine_link(one, first) && examine_link(other, second) &&
           detail::is_same(first, second);
}

bool kestin_is_inside(const char* path, const char* folder) {
    const std::string inner = resolve(path);
    const std::string outer = resolve(folder);
    return !inner.empty() && !outer.empty() &&
           (inner + '/').starts_with(outer == "/" ? outer : outer + '/');
}

bool kestin_chmod_safe(const char* path) {
    struct stat facts {};
    return examine_link(path, facts) && detail::grant_owner(AT_FDCWD, path, facts.st_mode, S_IWUSR);
}

bool kestin_unlink_safe(const char* path) {
    return ::unlink(path) == 0;
}

bool kestin_rename_safe(const char* from, const char* to) {
    if (::rename(from, to) == 0) {
        return true;
    }
    return errno == ENOTDIR && replace_file_by_directory(from, to);
}

void kestin_create_directory_recursive(const std::string& path) {
    if (::mkdir(path.c_str(), 0777) == 0 || errno != ENOENT) {
        return;
    }
    const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
    std::string parent;
    if (name.find('/') != std::string::npos &&
        kestin_extract_directory(name.c_str(), parent, true)) {
        kestin_create_directory_recursive(parent);
        const int parents_fault = errno;
        if (::mkdir(path.c_str(), 0777) != 0 && errno == ENOENT) {
            errno = parents_fault;
        }
    }
}

bool kestin_sync_path(const char* path) {
    const detail::Descriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return file && ::fsync(file.number()) == 0;
}

bool kestin_can_lock(const std::string& directory) {
    std::string pattern = directory + "/.lock_probe_XXXXXX";
    const detail::Descriptor file(::mkostemp(pattern.data(), O_CLOEXEC));
    if (!file) {
        return true;
    }
    ::unlink(pattern.c_str());
    return ::flock(file.number(), LOCK_EX | LOCK_NB) == 0;
}

bool file_get_size(const char* path, std::int64_t& size) {
    struct stat facts {};
    if (!examine(path, facts)) {
        return false;
    }
    size = facts.st_size;
    return true;
}

bool file_get_time(const char* path, std::int64_t& time) {
    struct stat facts {};
    if (!examine(path, facts)) {
        return false;
    }
    time = detail::facts_of(facts).time;
    return true;
}

PathFacts kestin_look_at(const char* path) {
    struct stat facts {};
    if (!examine_link(path, facts)) {
        const bool is_unknown = may_exist();
        return {.exists = is_unknown, .is_unknown = is_unknown};
    }
    const bool is_link = S_ISLNK(facts.st_mode);
    PathFacts told{.exists = true};
    if (!is_link || examine(path, facts)) {
        told = detail::facts_of(facts);
    }
    told.is_link = is_link;
    return told;
}

bool file_set_time(const char* path, std::int64_t time) {
    struct stat facts {};
    return ::utimensat(AT_FDCWD, path, detail::new_times(time).data(), AT_SYMLINK_NOFOLLOW) == 0 &&
           examine_link(path, facts) && detail::is_new_time(facts, time);
}

}  // namespace Kestin::Base
