#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace transmit::detail {

// One character at a text's start: its code point and its bytes. Bytes that are no UTF-8 are
// characters by themselves, without a code point.
struct Character {
    std::optional<char32_t> code;
    std::size_t size = 1;
};

// Of a text that isn't empty.
Character first_character(std::string_view text);

bool is_utf8(std::string_view text);

void append_utf8(std::string& text, char32_t code);

}  // namespace transmit::detail
