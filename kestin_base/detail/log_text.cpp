#include "kestin_base/detail/log_text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "kestin_base/detail/printf_format.h"

namespace Kestin::Base::detail {
namespace {

bool is_plain(char byte) {
    return byte >= 0x20 && byte < 0x7f;
}

// A character of `length` bytes in UTF-8: how its first byte looks, and the least code that needs
// so many bytes.
struct Utf8Form {
    std::size_t length;
    std::uint8_t mask;
    std::uint8_t lead;
    std::uint32_t least;
};
constexpr Utf8Form utf8_forms[] = {
    {2, 0xe0, 0xc0, 0x80}, {3, 0xf0, 0xe0, 0x800}, {4, 0xf8, 0xf0, 0x10000}};

constexpr std::uint32_t last_control = 0x9f;
constexpr std::uint32_t last_code = 0x10ffff;

bool is_surrogate(std::uint32_t code) {
    return code >= 0xd800 && code <= 0xdfff;
}

// The code of the character of that form at the front of the text; 0: there is none.
std::uint32_t code_of(std::string_view text, const Utf8Form& form) {
    if (text.size() < form.length) {
        return 0;
    }
    std::uint32_t code = static_cast<std::uint8_t>(text.front()) & ~form.mask & 0xffU;
    for (const char byte : text.substr(1, form.length - 1)) {
        if ((static_cast<std::uint8_t>(byte) & 0xc0U) != 0x80U) {
            return 0;
        }
        code = code << 6U | (static_cast<std::uint8_t>(byte) & 0x3fU);
    }
    return code;
}

// The bytes of the character at the front of the text, which is no plain one; 0: it isn't shown.
std::size_t shown_length(std::string_view text) {
    for (const Utf8Form& form : utf8_forms) {
        if ((static_cast<std::uint8_t>(text.front()) & form.mask) == form.lead) {
            const std::uint32_t code = code_of(text, form);
            const bool is_shown = code >= form.least && code > last_control && code <= last_code &&
                                  !is_surrogate(code);
            return is_shown ? form.length : 0;
        }
    }
    return 0;
}

void append_escaped(char byte, std::string& text) {
    constexpr const char* digits = "0123456789ABCDEF";
    const auto value = static_cast<std::uint8_t>(byte);
    text += "\\x";
    text += digits[value >> 4U];
    text += digits[value & 0xfU];
}

}  // namespace

void append_message(std::string& line, const char* format, va_list arguments) {
    const std::string whole = format_text(format, arguments);
    std::string_view rest = std::string_view(whole).substr(0, max_message_size);
    while (!rest.empty()) {
        const auto plain_end = std::find_if_not(rest.begin(), rest.end(), is_plain);
        auto shown = static_cast<std::size_t>(plain_end - rest.begin());
        if (shown == 0) {
            shown = shown_length(rest);
        }
        if (shown == 0) {
            append_escaped(rest.front(), line);
            shown = 1;
        } else {
            line.append(rest, 0, shown);
        }
        rest.remove_prefix(shown);
    }
    if (whole.size() > max_message_size) {
        line += " ... (cut, " + std::to_string(whole.size()) + " bytes)";
    }
}

}  // namespace Kestin::Base::detail
