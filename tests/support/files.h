#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace support {

// The whole file as bytes; empty if there is none.
std::string read_file(const std::string& path);

// Replaces the file, creating the folders above it. Throws if that fails.
void write_file(const std::string& path, std::string_view bytes);

// A second name for the file where the file system allows it, else a copy.
void link_or_copy(const std::string& from, const std::string& to);

// `size` bytes that look random and are the same for the same seed.
std::string random_bytes(std::uint64_t size, std::uint64_t seed);

// SHA-256 as 64 lower-case hexadecimal digits; of a file in constant memory.
std::string sha256(std::string_view bytes);
std::string sha256_of_file(const std::string& path);

}  // namespace support
