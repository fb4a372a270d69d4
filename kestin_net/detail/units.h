#pragma once

#include <cstdint>

namespace Kestin::Net::detail {

inline constexpr std::uint64_t kibibyte = 1024;
inline constexpr std::uint64_t mebibyte = 1024 * kibibyte;

}  // namespace Kestin::Net::detail
