#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "kestin_base/detail/printf_format.h"
#include "kestin_base/uncopy.h"

namespace Kestin::Base {

// Space, tab, vertical tab, carriage return, line feed, form feed.
inline constexpr const char* blank_characters = " \t\v\r\n\f";

// Removes each of the characters from both ends of the text.
void kestin_string_trim(std::string& text, const char* trim_chars);

// Splits a text at every one of the delimiters and trims each piece. Pieces can be empty; a text
// of n delimiters has n + 1 pieces.
class StringSplitter : private Uncopy {
  public:
    StringSplitter(std::string source, std::string trim_chars, std::string delimiters);

    bool eof() const;
    StringSplitter& operator>>(std::string& piece);

  private:
    std::string source_;
    std::string trim_chars_;
    std::string delimiters_;
    std::string::size_type next_ = 0;
};

// Formats into the buffer, within `size` bytes and with a terminator; the length of what stands
// there. The format is one of detail/printf_format.h.
template <typename... Arguments>
std::uint64_t kestin_snprintf(char* buffer, std::uint64_t size,
                              detail::PrintfFormat<std::type_identity_t<Arguments>...> format,
                              Arguments... arguments) {
    return detail::format_into(buffer, size, format.text(), arguments...);
}

// From the system's narrow character set to UTF-8. On this platform paths and texts are bytes, and
// the text comes back as it is.
std::string ansi_to_utf8(const std::string& text);

// What a value of errno means, in English words; "error 4711" for one that has none.
std::string kestin_error_text(int error);

}  // namespace Kestin::Base
