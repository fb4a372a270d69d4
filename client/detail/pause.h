#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>

namespace transmit::detail {

// Sleeps, with a look at the caller's wish now and then; false if that is to stop.
inline bool pause_unless(const std::function<bool()>& cancelled, std::chrono::nanoseconds time) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::nanoseconds slice = std::chrono::milliseconds(200);
    const auto end = Clock::now() + time;
    while (!cancelled || !cancelled()) {
        const auto left = end - Clock::now();
        if (left <= Clock::duration::zero()) {
            return true;
        }
        const auto wait = std::min<std::chrono::nanoseconds>(left, slice).count();
        const timespec length{0, static_cast<long>(wait)};
        ppoll(nullptr, 0, &length, nullptr);
    }
    return false;
}

}  // namespace transmit::detail
