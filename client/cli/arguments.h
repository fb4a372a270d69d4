#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace transmit::cli {

// The parser takes some arguments for lists or empty values: brackets, braces. `marked` hides that
// from it, and `unmarked` gives the argument back as it was typed. `marked` changes no option and
// no command.
std::string marked(std::string argument);
std::string unmarked(const std::string& argument);

// The place of the first word that is neither an option nor an option's value, if there is one
// before "--". `takes_value` tells it of an option without its value: "-j", "--jobs".
std::optional<std::size_t> first_word(const std::vector<std::string>& arguments,
                                      const std::function<bool(std::string_view)>& takes_value);

}  // namespace transmit::cli
