#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace message {

// The key of the block cipher for file data. Every peer builds the same one, so it hides nothing
// from who knows this protocol; it only keeps file data from standing in the clear on the wire.
using PayloadKey = std::array<std::uint8_t, 16>;

constexpr PayloadKey make_payload_key() {
    constexpr std::uint8_t base = 0x20;
    PayloadKey key{};
    for (std::size_t index = 0; index < key.size(); ++index) {
        key[index] = static_cast<std::uint8_t>(base + index);
    }
    return key;
}

}  // namespace message
