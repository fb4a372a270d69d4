#pragma once

#include <string>
#include <string_view>

// Names of files that this program works with beside a target, here and on the server:
// ".transmit-", 32 hexadecimal digits and an ending. Nobody chooses such a name, and it fits
// whatever length the target's name has.
namespace transmit::detail {

// Unfinished downloads and what is known of them; new versions on the server that replace a file.
inline constexpr std::string_view part_ending = ".part";
inline constexpr std::string_view info_ending = ".info";
inline constexpr std::string_view side_ending = ".new";

// How many names a target has at most, for folders where somebody else's file bears one of them.
inline constexpr int most_work_names = 16;

// The work name of round 0, 1, ... for the file `name`, always the same, so that another run finds
// what an earlier one left.
std::string work_name(std::string_view name, std::string_view ending, int round = 0);

// True if the name has the form of a work name with this ending.
bool is_work_name(std::string_view name, std::string_view ending);

}  // namespace transmit::detail
