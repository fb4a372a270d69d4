#include "kestin_base/detail/printf_format.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace Kestin::Base::detail {
namespace {

// A glibc format: each %I64 becomes %ll.
std::string system_format(std::string_view format) {
    constexpr std::string_view wide = "%I64";
    std::string result;
    result.reserve(format.size());
    for (;;) {
        const auto at = format.find(wide);
        result += format.substr(0, at);
        if (at == std::string_view::npos) {
            return result;
        }
        result += "%ll";
        format.remove_prefix(at + wide.size());
    }
}

}  // namespace

std::string format_text(const char* format, va_list arguments) {
    constexpr std::size_t usual_length = 255;
    const std::string known = system_format(format);
    std::string text(usual_length, '\0');
    for (;;) {
        va_list copy;
        va_copy(copy, arguments);
        const int printed = std::vsnprintf(text.data(), text.size() + 1, known.c_str(), copy);
        va_end(copy);
        const auto length = static_cast<std::size_t>(std::max(printed, 0));
        const bool fits = length <= text.size();
        text.resize(length);
        if (fits) {
            return text;
        }
    }
}

std::uint64_t format_into(char* buffer, std::uint64_t size, const char* format, ...) {
    if (size == 0) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, system_format(format).c_str(), arguments);
    va_end(arguments);
    return std::min(static_cast<std::uint64_t>(std::max(length, 0)), size - 1);
}

}  // namespace Kestin::Base::detail
