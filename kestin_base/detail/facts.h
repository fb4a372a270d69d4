#pragma once

#include <sys/stat.h>

#include "kestin_base/file_system.h"

namespace Kestin::Base::detail {

// Links are followed.
inline bool examine(const char* path, struct stat& facts) {
    return ::stat(path, &facts) == 0;
}

inline bool examine_link(const char* path, struct stat& facts) {
    return ::lstat(path, &facts) == 0;
}

inline bool is_same(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Times are rounded down already: the nanoseconds beside the seconds are never negative.
inline PathFacts facts_of(const struct stat& facts) {
    return {.exists = true,
            .is_examined = true,
            .is_directory = S_ISDIR(facts.st_mode),
            .is_regular = S_ISREG(facts.st_mode),
            .size = facts.st_size,
            .time = facts.st_mtim.tv_sec};
}

}  // namespace Kestin::Base::detail
