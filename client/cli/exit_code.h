#pragma once

#include "client/error.h"

namespace transmit::cli {

// What the program ends with; the manual page lists them.
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
};

// `missing` is what a path that doesn't exist means to the command.
ExitCode exit_code(const Error& error, ExitCode missing = ExitCode::file_not_found);

// True if what comes next would fail in the same way.
bool ends_all(ExitCode code);

}  // namespace transmit::cli
