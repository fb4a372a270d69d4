#pragma once

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

// What trials of the server's limits have in common. TRANSMIT_HEAVY_TESTS=1 in the environment runs
// them in full size.
namespace measure {

inline constexpr std::uint64_t kibibyte = 1024;
inline constexpr std::uint64_t mebibyte = 1024 * kibibyte;

inline bool is_heavy() {
    const char* wish = std::getenv("TRANSMIT_HEAVY_TESTS");
    return wish != nullptr && std::string_view(wish) == "1";
}

template <typename Number>
Number sized(Number usual, Number heavy) {
    return is_heavy() ? heavy : usual;
}

// Where a line of figures goes.
inline std::ostream& measured() {
    return std::cout << "[ MEASURED ] ";
}

inline std::chrono::milliseconds since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
}

}  // namespace measure
