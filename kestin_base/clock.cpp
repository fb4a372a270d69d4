#include "kestin_base/clock.h"

namespace Kestin::Base {
namespace {

std::string zero_padded(int value, std::size_t digits) {
    const std::string text = std::to_string(value);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

}  // namespace

std::uint64_t kestin_time() {
    return static_cast<std::uint64_t>(::time(nullptr));
}

timeval kestin_gettimeofday() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return now;
}

tm kestin_make_localtime(std::uint64_t time) {
    const auto seconds = static_cast<time_t>(time);
    tm local{};
    ::localtime_r(&seconds, &local);
    return local;
}

std::string kestin_get_datetime(const tm& time, const char* date_separator,
                                const char* time_separator, const char* between) {
    return zero_padded(time.tm_year + 1900, 4) + date_separator + zero_padded(time.tm_mon + 1, 2) +
           date_separator + zero_padded(time.tm_mday, 2) + between + zero_padded(time.tm_hour, 2) +
           time_separator + zero_padded(time.tm_min, 2) + time_separator +
           zero_padded(time.tm_sec, 2);
}

}  // namespace Kestin::Base
