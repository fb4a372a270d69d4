#pragma once

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>

namespace Kestin::Base::detail {

// For utimensat(2): another time of last modification, in seconds since 1970-01-01 UTC; the time of
// last access stays.
inline std::array<timespec, 2> new_times(std::int64_t modification) {
    return {timespec{0, UTIME_OMIT}, timespec{modification, 0}};
}

// Whether a file bears the time that it was given. False, with ERANGE in errno: the file system
// clamped it.
inline bool is_new_time(const struct stat& facts, std::int64_t modification) {
    if (facts.st_mtim.tv_sec != modification) {
        errno = ERANGE;
        return false;
    }
    return true;
}

}  // namespace Kestin::Base::detail
