#include "client/cli/arguments.h"

namespace transmit::cli {
namespace {

constexpr char mark = '\x01';
// First characters of what the parser doesn't take literally, and the mark itself.
constexpr std::string_view special = "\x01[{%";

// Whether the argument behind an option belongs to it: "--jobs 4", "-j 4" and "-vj 4", but neither
// "--jobs=4" nor "-j4".
bool wants_next(std::string_view option, const std::function<bool(std::string_view)>& takes_value) {
    if (option.starts_with("--")) {
        return option.find('=') == std::string_view::npos && takes_value(option);
    }
    for (std::size_t place = 1; place < option.size(); ++place) {
        if (takes_value(std::string("-") + option[place])) {
            return place + 1 == option.size();
        }
    }
    return false;
}

}  // namespace

std::string marked(std::string argument) {
    const bool is_special =
        !argument.empty() && special.find(argument.front()) != std::string::npos;
    return is_special ? mark + std::move(argument) : argument;
}

std::string unmarked(const std::string& argument) {
    return argument.starts_with(mark) ? argument.substr(1) : argument;
}

std::optional<std::size_t> first_word(const std::vector<std::string>& arguments,
                                      const std::function<bool(std::string_view)>& takes_value) {
    for (std::size_t place = 0; place < arguments.size(); ++place) {
        const std::string& argument = arguments[place];
        if (argument == "--") {
            break;
        }
        if (argument.size() < 2 || argument.front() != '-') {
            return place;
        }
        place += wants_next(argument, takes_value) ? 1 : 0;
    }
    return std::nullopt;
}

}  // namespace transmit::cli
