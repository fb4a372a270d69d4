#include "client/cli/text.h"

#include <cwchar>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "client/detail/utf8.h"

namespace transmit::cli {
namespace {

using detail::Character;
using detail::first_character;

// Beside the C0 and C1 control characters, those that turn the direction of what follows or break
// the line (Unicode 15, table 23-3 and section 23.2).
bool steers(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E ||
           code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string escaped(std::string_view bytes) {
    constexpr auto digits = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text.append({'\\', 'x', digits[value / 16], digits[value % 16]});
    }
    return text;
}

std::size_t width(const Character& character) {
    const int width = character.code ? wcwidth(static_cast<wchar_t>(*character.code)) : 1;
    return width >= 0 ? static_cast<std::size_t>(width) : 1;
}

bool is_plain_word(std::string_view word) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./:,+=@%";
    return !word.empty() && word.find_first_not_of(plain) == std::string_view::npos;
}

std::string shell_word(std::string_view word) {
    if (is_plain_word(word)) {
        return std::string(word);
    }
    std::string text = "'";
    for (const char byte : word) {
        byte == '\'' ? text.append("'\\''") : text.append(1, byte);
    }
    return text + "'";
}

}  // namespace

std::string shown(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character next = first_character(text);
        const auto bytes = text.substr(0, next.size);
        result += !next.code || steers(*next.code) ? escaped(bytes) : std::string(bytes);
        text.remove_prefix(next.size);
    }
    return result;
}

// All of these characters are in the first 65536, which take one escape each (RFC 8259, section 7).
std::string shown_json(std::string_view json) {
    constexpr auto digits = "0123456789abcdef";
    std::string result;
    while (!json.empty()) {
        const Character next = first_character(json);
        if (next.code && steers(*next.code)) {
            result += "\\u";
            for (const int shift : {12, 8, 4, 0}) {
                result += digits[*next.code >> shift & 0xF];
            }
        } else {
            result += json.substr(0, next.size);
        }
        json.remove_prefix(next.size);
    }
    return result;
}

std::string shown_size(double bytes) {
    static constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    for (; bytes >= 1024 && unit + 1 < units.size(); ++unit) {
        bytes /= 1024;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(unit == 0 ? 0 : 1) << bytes << ' ' << units[unit];
    return text.str();
}

std::string shown_time(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    std::array<char, 64> text{};
    if (!localtime_r(&time, &parts) ||
        std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text.data();
}

std::string shown_duration(std::chrono::seconds duration) {
    const auto seconds = duration.count();
    std::ostringstream text;
    text << std::setfill('0');
    if (seconds >= 3600) {
        text << seconds / 3600 << ':' << std::setw(2);
    }
    text << seconds / 60 % 60 << ':' << std::setw(2) << seconds % 60;
    return text.str();
}

std::string counted(std::uint64_t count, std::string_view noun) {
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::size_t columns(std::string_view text) {
    std::size_t sum = 0;
    while (!text.empty()) {
        const Character next = first_character(text);
        sum += width(next);
        text.remove_prefix(next.size);
    }
    return sum;
}

std::string beginning(std::string_view text, std::size_t most) {
    std::string result;
    while (!text.empty()) {
        const Character next = first_character(text);
        if (width(next) > most) {
            break;
        }
        most -= width(next);
        result += text.substr(0, next.size);
        text.remove_prefix(next.size);
    }
    return result;
}

std::string ending(std::string_view text, std::size_t most) {
    constexpr std::string_view dots = "...";
    std::size_t left = columns(text);
    if (left <= most) {
        return std::string(text);
    }
    const auto mark = dots.substr(0, most);
    while (left > most - mark.size()) {
        const Character next = first_character(text);
        left -= width(next);
        text.remove_prefix(next.size);
    }
    return std::string(mark).append(text);
}

std::optional<std::uint64_t> parse_rate(std::string_view text) {
    constexpr std::string_view suffixes = "kmgKMG";
    constexpr double most = 4'611'686'018'427'387'904.0;
    const auto suffix = text.empty() ? std::string_view::npos : suffixes.find(text.back());
    if (suffix != std::string_view::npos) {
        text.remove_suffix(1);
    }
    double rate = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, rate, std::chars_format::fixed);
    if (suffix != std::string_view::npos) {
        rate = std::ldexp(rate, 10 * (1 + static_cast<int>(suffix % 3)));
    }
    if (error != std::errc() || stop != end || !(rate >= 1 && rate <= most)) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(rate);
}

std::string shell_quoted(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : " ") + shell_word(word);
    }
    return line;
}

}  // namespace transmit::cli
