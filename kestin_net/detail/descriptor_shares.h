#pragma once

#include <cstdint>

namespace Kestin::Net::detail {

// How the descriptors that the process may open are divided, so that neither port can silence the
// other and a connected client still finds one for the file of its transfer.
struct DescriptorShares {
    std::uint64_t first_port;
    std::uint64_t other_ports;

    // What is left of `limit`, the soft RLIMIT_NOFILE, when `own` descriptors are open before the
    // first connection comes: three quarters for connections of the first port, an eighth for
    // those of all others. Nobody gets the rest for a connection: files and folders have it.
    static constexpr DescriptorShares of(std::uint64_t limit, std::uint64_t own) {
        const std::uint64_t free = limit > own ? limit - own : 0;
        return {.first_port = free / 4 * 3, .other_ports = free / 8};
    }
};

}  // namespace Kestin::Net::detail
