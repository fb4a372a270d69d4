#pragma once

#include <span>
#include <string_view>

#include "client/error.h"

namespace transmit::cli {

// What the program ends with.
enum class ExitCode {
    done = 0,
    other_error = 1,
    usage = 2,
    folder_not_found = 3,
    file_not_found = 4,
    temporary = 5,
    some_failed = 6,
    no_connection = 7,
    time_limit = 10,
    interrupted = 130,  // 128 + SIGINT, as shells count it
    terminated = 143,   // 128 + SIGTERM
};

// A code, and what it means: a few words, and sentences for the manual page.
struct ExitCodeText {
    ExitCode code;
    std::string_view brief;
    std::string_view full;
};

// All of them, in ascending order.
std::span<const ExitCodeText> exit_code_texts();

// `missing` is what a path that doesn't exist means to the command.
ExitCode exit_code(const Error& error, ExitCode missing = ExitCode::file_not_found);

// True if what comes next would fail in the same way.
bool ends_all(ExitCode code);

}  // namespace transmit::cli
