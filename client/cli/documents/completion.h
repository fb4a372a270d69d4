#pragma once

#include <string>

#include "client/cli/documents/description.h"

namespace transmit::cli {

// Scripts that teach a shell the commands, the options and their words. Names of put and get are
// completed with local files.
std::string bash_completion(const ProgramDescription& program);
std::string zsh_completion(const ProgramDescription& program);
std::string fish_completion(const ProgramDescription& program);

}  // namespace transmit::cli
