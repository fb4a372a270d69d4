#pragma once

#include "client/cli/exit_code.h"

namespace transmit::cli {

// Reads the command line and runs the command that it names.
ExitCode run_command_line(int argument_count, char** arguments);

}  // namespace transmit::cli
