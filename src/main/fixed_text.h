#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

// A zero-terminated text of fewer than `Size` characters, which takes no memory but its own and may
// be used in signal handlers. What doesn't fit is cut off.
template <std::size_t Size>
class FixedText {
  public:
    FixedText& append(std::string_view text) {
        text = text.substr(0, Size - 1 - length_);
        std::copy(text.begin(), text.end(), characters_.begin() + length_);
        length_ += text.size();
        return *this;
    }

    // The number with zeros before it, up to `width` digits.
    FixedText& append_decimal(unsigned long number, std::size_t width = 1) {
        std::array<char, 20> digits;  // of the largest 64-bit number
        std::size_t first = digits.size();
        do {
            digits[--first] = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0 || digits.size() - first < width);
        return append({digits.data() + first, digits.size() - first});
    }

    const char* c_str() const { return characters_.data(); }

  private:
    std::array<char, Size> characters_{};
    std::size_t length_ = 0;
};
