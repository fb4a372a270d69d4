#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace Kestin::Base {

// Wall clock, callable from every thread. Seconds count from 1970-01-01 UTC.
std::uint64_t kestin_time();
timeval kestin_gettimeofday();

// `time` in the local zone.
tm kestin_make_localtime(std::uint64_t time);

// "2024-03-05 10:22:33" for the separators "-", ":", " ": every field zero-padded.
std::string kestin_get_datetime(const tm& time, const char* date_separator,
                                const char* time_separator, const char* between);

}  // namespace Kestin::Base
