#include "kestin_base/byte_stream.h"

#include <bit>
#include <cstring>

namespace Kestin::Base {
namespace {

template <typename Integer>
Integer swapped(Integer value) {
    if constexpr (sizeof(Integer) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(Integer) == 4) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap64(value);
    }
}

template <typename Integer>
void swap_in_place(void* data) {
    Integer value;
    std::memcpy(&value, data, sizeof value);
    value = swapped(value);
    std::memcpy(data, &value, sizeof value);
}

}  // namespace

void ByteStream::host_to_net(void* data, std::uint64_t size) {
    if constexpr (std::endian::native == std::endian::big) {
        return;
    }
    switch (size) {
        case 2:
            return swap_in_place<std::uint16_t>(data);
        case 4:
            return swap_in_place<std::uint32_t>(data);
        case 8:
            return swap_in_place<std::uint64_t>(data);
        default:
            return;
    }
}

void ByteStream::net_to_host(void* data, std::uint64_t size) {
    host_to_net(data, size);
}

}  // namespace Kestin::Base
