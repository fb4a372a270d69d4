#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <type_traits>

namespace Kestin::Base::detail {

template <typename Argument>
constexpr bool conversion_takes(const char* conversion) {
    const auto is = [conversion](const char* text) {
        const char* at = conversion;
        for (; *text != '\0' && *at == *text; ++text) {
            ++at;
        }
        return *text == '\0';
    };
    if constexpr (std::is_same_v<Argument, const char*> || std::is_same_v<Argument, char*>) {
        return is("s");
    } else if constexpr (std::is_integral_v<Argument> && sizeof(Argument) == 8) {
        return is(std::is_signed_v<Argument> ? "I64d" : "I64u");
    } else if constexpr (std::is_integral_v<Argument>) {
        return is("d") || is("u");
    } else {
        return false;
    }
}

// A printf format with the conversions %s, %d, %u, %I64d and %I64u, without flags or widths. The
// compiler refuses one that doesn't fit its arguments.
template <typename... Arguments>
class PrintfFormat {
  public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to be taken as it stands
    consteval PrintfFormat(const char* text) : text_(text) {
        const char* at = text;
        const bool fits = (next_takes<Arguments>(at) && ...);
        if (!fits || to_conversion(at)) {
            throw "the format doesn't fit its arguments";
        }
    }

    constexpr const char* text() const { return text_; }

  private:
    static constexpr bool to_conversion(const char*& at) {
        while (*at != '\0' && *at != '%') {
            ++at;
        }
        if (*at == '\0') {
            return false;
        }
        ++at;
        return true;
    }
    template <typename Argument>
    static constexpr bool next_takes(const char*& at) {
        return to_conversion(at) && conversion_takes<Argument>(at);
    }

    const char* text_;
};

// glibc reads %I64u as flag I and width 64 and prints the low half of the argument: these rewrite
// %I64 to %ll, in this one place, and format.
std::string format_text(const char* format, va_list arguments);
std::uint64_t format_into(char* buffer, std::uint64_t size, const char* format, ...);

}  // namespace Kestin::Base::detail
