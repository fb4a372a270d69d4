#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/cli/exit_code.h"

namespace transmit::cli {

// Does one thing after the other, going on after a failure unless the rest would fail likewise.
// The result: done, the failure of a single thing, or some_failed.
ExitCode for_each(const std::vector<std::string>& things,
                  const std::function<ExitCode(const std::string&)>& act);

}  // namespace transmit::cli
