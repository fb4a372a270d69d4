#pragma once

#include <cstdint>

namespace Kestin::Base {

// Single integers between host order and network order (most significant byte first), in place.
// `size` is 1, 2, 4 or 8; one byte stays as it is. `data` needs no alignment.
class ByteStream {
  public:
    static void host_to_net(void* data, std::uint64_t size);
    static void net_to_host(void* data, std::uint64_t size);
};

}  // namespace Kestin::Base
