#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// Fills a text field: at most its size minus one characters, zeros behind them.
template <std::size_t Size>
void fill_text(char (&field)[Size], std::string_view text) {
    char* end = std::copy_n(text.data(), std::min(text.size(), Size - 1), field);
    std::fill(end, field + Size, '\0');
}
