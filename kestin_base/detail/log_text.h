#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace Kestin::Base::detail {

// The longest message of a line in bytes; of a longer one the rest is cut, and the line says so.
inline constexpr std::size_t max_message_size = 8192;

// Appends a message to what a line holds so far: formatted and cut at the bound. Shown as \xHH are
// the bytes of control characters (U+0000 to U+001F, U+007F to U+009F), which a terminal would obey
// and which could forge a line, and bytes that are not UTF-8 (RFC 3629).
void append_message(std::string& line, const char* format, va_list arguments);

}  // namespace Kestin::Base::detail
