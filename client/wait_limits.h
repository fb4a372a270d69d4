#pragma once

#include <chrono>
#include <functional>

namespace transmit {

// How long a peer may keep us waiting. `cancelled`, if set, is asked before each call to the system
// that sends or receives, and at least five times a second while one waits; true ends it.
// `stalled`, if set, is told once in each wait that lasts for `stall`.
struct WaitLimits {
    std::chrono::milliseconds connect{10'000};
    std::chrono::milliseconds silence{60'000};
    std::chrono::milliseconds stall{30'000};
    std::function<bool()> cancelled{};
    std::function<void()> stalled{};
};

}  // namespace transmit
