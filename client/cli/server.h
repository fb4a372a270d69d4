#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/batch.h"
#include "client/cli/commands.h"
#include "client/retrying_connection.h"

namespace transmit::cli {

// How the program waits: as long as was asked for, and until SIGINT or SIGTERM.
WaitLimits wait_limits(const Common& common);

// One attempt at a connection, for commands that ask and are done.
RetryingConnection connect_once(const Common& common, const Endpoint& endpoint);

// What a command does at one place of the server.
using TargetAction = std::function<Result<void>(RetryingConnection&, const RemotePath&)>;

// Acts on one name after the other, going on after a failure unless the rest would fail likewise.
// Complains of failures. The result: done, the failure of a single name, or some_failed; `missing`
// is what a path that doesn't exist means.
ExitCode for_each_target(const Common& common, const std::vector<std::string>& names,
                         const TargetAction& act, ExitCode missing = ExitCode::file_not_found);

}  // namespace transmit::cli
