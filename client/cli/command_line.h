#pragma once

#include "client/cli/exit_code.h"

namespace transmit::cli {

// Reads the settings file and the command line, which wins, and runs the command that it names.
ExitCode run_command_line(int argument_count, const char* const* arguments);

}  // namespace transmit::cli
