#pragma once

#include <sys/stat.h>

#include <array>
#include <cstdint>

namespace Kestin::Base::detail {

// For utimensat(2): another time of last modification, in seconds since 1970-01-01 UTC; the time of
// last access stays.
inline std::array<timespec, 2> new_times(std::int64_t modification) {
    return {timespec{0, UTIME_OMIT}, timespec{modification, 0}};
}

}  // namespace Kestin::Base::detail
