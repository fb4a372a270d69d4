#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "client/error.h"

namespace transmit::cli {

// Columns of the terminal on standard error; 80 if it doesn't tell.
std::size_t terminal_width();
// True if standard error is a terminal that can move its cursor.
bool can_redraw();
// True if it may be coloured too: NO_COLOR isn't set, or is empty.
bool can_colour();
// True if a person can be asked: standard input and error are terminals.
bool can_ask();
// Asks on standard error; true for an answer that begins with y or Y.
bool asked(const std::string& question);

// Whether the same command goes on where it stopped, as transfers do.
enum class Resumes { no, yes };

// "transmit: SUBJECT: what went wrong. What to do." as one line without its end.
std::string complaint(std::string_view subject, const Error& error, Resumes resumes = Resumes::no);
// The same on standard error.
void complain(std::string_view subject, const Error& error);
void complain(std::string_view text);

}  // namespace transmit::cli
