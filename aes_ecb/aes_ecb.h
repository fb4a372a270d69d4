#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

// An allocator whose vectors leave new bytes as they are: a payload is overwritten in full right
// after it is made, and zeroing it first would cost a pass over memory per block.
template <typename Value>
struct UninitializedAllocator : std::allocator<Value> {
    template <typename Other>
    void construct(Other* place) noexcept(std::is_nothrow_default_constructible_v<Other>) {
        ::new (static_cast<void*>(place)) Other;
    }
    template <typename Other, typename... Arguments>
    void construct(Other* place, Arguments&&... arguments) {
        ::new (static_cast<void*>(place)) Other(std::forward<Arguments>(arguments)...);
    }
};

using ByteArray = std::vector<std::uint8_t, UninitializedAllocator<std::uint8_t>>;

// AES in ECB mode with PKCS#7 padding (FIPS 197, RFC 5652 section 6.3), so the cipher text of n
// bytes has (n / 16 + 1) * 16 bytes and tells its plain length by itself. `key_length` is 16, 24
// or 32. `out` is replaced; it must not alias `data`. False, with `out` empty: a key of another
// length, or, when deciphering, a length that is no positive multiple of 16 or bad padding. No
// exception leaves. Free of shared state: any number of threads at once.
bool aes_ecb_encrypt_data(const std::uint8_t* key, std::uint64_t key_length,
                          const std::uint8_t* data, std::uint64_t data_length, ByteArray& out);
bool aes_ecb_decrypt_data(const std::uint8_t* key, std::uint64_t key_length,
                          const std::uint8_t* data, std::uint64_t data_length, ByteArray& out);
