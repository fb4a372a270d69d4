#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Values as people read and write them.
namespace transmit::cli {

// A name or text that may hold any bytes, with what could steer a terminal (control characters, and
// bytes that are no UTF-8) as \xHH.
std::string shown(std::string_view text);

// A JSON text without line breaks, with those characters as \uXXXX.
std::string shown_json(std::string_view json);

// "512 B", "4.0 KiB", "1.5 GiB".
std::string shown_size(double bytes);
// Local date and time of seconds since 1970-01-01 UTC.
std::string shown_time(std::int64_t seconds);
// "0:07", "2:05", "1:02:05".
std::string shown_duration(std::chrono::seconds duration);
// "1 file", "2 files".
std::string counted(std::uint64_t count, std::string_view noun);

// Columns that a text of `shown` takes on a terminal.
std::size_t columns(std::string_view text);
// Its beginning, or its end with "..." before it, if it takes more than `most` columns. Never half
// a character.
std::string beginning(std::string_view text, std::size_t most);
std::string ending(std::string_view text, std::size_t most);

// Bytes per second with an optional k, M or G for powers of 1024: "500k", "1.5M". Nothing if it is
// none, less than one or more than 2^62.
std::optional<std::uint64_t> parse_rate(std::string_view text);

// A command line that a shell reads as these words.
std::string shell_quoted(const std::vector<std::string>& words);

}  // namespace transmit::cli
