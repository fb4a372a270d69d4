#include "client/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "client/status_text.h"

namespace transmit::cli {
namespace {

// The C0 and C1 control characters; the latter stand in UTF-8 as C2 80 to C2 9F.
bool is_control(std::string_view text, std::size_t position) {
    const auto byte = static_cast<unsigned char>(text[position]);
    const auto former = position > 0 ? static_cast<unsigned char>(text[position - 1]) : 0;
    return byte < 0x20 || byte == 0x7F || (former == 0xC2 && byte >= 0x80 && byte < 0xA0);
}

std::string escaped(unsigned char byte) {
    constexpr auto digits = "0123456789ABCDEF";
    return {'\\', 'x', digits[byte / 16], digits[byte % 16]};
}

std::string_view next_step(const Error& error) {
    switch (error.kind) {
        case ErrorKind::no_connection:
            return "See that the server runs and that --server names it.";
        case ErrorKind::connection_lost:
        case ErrorKind::time_limit:
        case ErrorKind::cancelled:
            return "The same command goes on where this one stopped.";
        case ErrorKind::refused:
            return status_text(error.status).next_step;
        case ErrorKind::bad_answer:
            return "See that --server names the transmit port.";
        case ErrorKind::file_changed:
            return "Try again when nobody writes to it.";
        default:
            return "";
    }
}

}  // namespace

std::string shown(std::string_view text) {
    std::string result;
    for (std::size_t position = 0; position < text.size(); ++position) {
        if (is_control(text, position)) {
            result += escaped(static_cast<unsigned char>(text[position]));
        } else {
            result += text[position];
        }
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

std::size_t terminal_width() {
    winsize size{};
    if (!isatty(STDERR_FILENO)) {
        return 0;
    }
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void complain(std::string_view text) {
    std::cerr << "transmit: " + shown(text) + "\n";
}

void complain(std::string_view subject, const Error& error) {
    const bool named = subject.empty() || error.text.starts_with(subject);
    std::string text = (named ? "" : std::string(subject) + ": ") + error.text;
    if (const auto step = next_step(error); !step.empty()) {
        text.append(". ").append(step);
    }
    complain(text);
}

}  // namespace transmit::cli
