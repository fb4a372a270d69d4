#include "client/detail/utf8.h"

#include <array>

namespace transmit::detail {
namespace {

bool is_continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

// RFC 3629: a start byte tells the length; neither overlong forms nor surrogates are allowed.
Character first_character(std::string_view text) {
    static constexpr std::array<char32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    const auto start = static_cast<unsigned char>(text.front());
    if (start < 0x80) {
        return {start, 1};
    }
    const std::size_t size = start >= 0xF0 ? 4 : start >= 0xE0 ? 3 : 2;
    if (start < 0xC2 || start > 0xF4 || text.size() < size) {
        return {};
    }
    char32_t code = start & (0x7FU >> size);
    for (const char byte : text.substr(1, size - 1)) {
        if (!is_continuation(byte)) {
            return {};
        }
        code = code << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    const bool valid = code >= least[size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return valid ? Character{code, size} : Character{};
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const Character next = first_character(text);
        if (!next.code) {
            return false;
        }
        text.remove_prefix(next.size);
    }
    return true;
}

void append_utf8(std::string& text, char32_t code) {
    const auto tail = [&text, code](int shift) {
        text += static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
        tail(0);
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | code >> 12);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0 | code >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace transmit::detail
