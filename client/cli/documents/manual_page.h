#pragma once

#include <string>
#include <string_view>

#include "client/cli/documents/description.h"

namespace transmit::cli {

// A manual page in the man macros of roff: the text of `frame`, in which the lines @EXAMPLES@,
// @COMMANDS@, @OPTIONS@ and @EXIT_STATUS@ stand for what the description and the exit codes say.
std::string manual_page(std::string_view frame, const ProgramDescription& program);

}  // namespace transmit::cli
