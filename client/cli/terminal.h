#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/error.h"

// What people see.
namespace transmit::cli {

// A name or text of the server, with what could steer a terminal shown as \xHH.
std::string shown(std::string_view text);

// "4.0 KiB", "1.5 GiB": three significant digits or so.
std::string shown_size(double bytes);
// Local date and time of seconds since 1970-01-01 UTC.
std::string shown_time(std::int64_t seconds);

// Columns of the terminal on standard error; 0 if it is none.
std::size_t terminal_width();

// "transmit: SUBJECT: what went wrong. What to do." on standard error.
void complain(std::string_view subject, const Error& error);
void complain(std::string_view text);

}  // namespace transmit::cli
