#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/cli/progress.h"

// What a batch's progress looks like. Pure; names and reasons of the other side are made safe here.
namespace transmit::cli {

// A line of a terminal.
struct BarLine {
    std::string text;
    bool hindered = false;  // what it tells of stands still
};

// The block that a terminal of so many columns shows: a line for each of the first three running
// files, and one for the whole if that isn't the same. No line is wider than `width`.
std::vector<BarLine> progress_bars(const BatchProgress& progress, Clock::time_point now,
                                   std::size_t width);

// The same as one line, of any width.
std::string progress_line(const BatchProgress& progress, Clock::time_point now);

// "another client uploads this file; trying again in 4 s (2:00 left)".
std::string hindrance_text(const Hindrance& hindrance, Clock::time_point now);

}  // namespace transmit::cli
