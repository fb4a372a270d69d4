#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/batch.h"
#include "client/cli/commands.h"
#include "client/retrying_connection.h"

namespace transmit::cli {

// How the program waits: as long as was asked for, and until SIGINT or SIGTERM.
WaitLimits wait_limits(const Common& common);

// One attempt at a connection, for commands that ask and are done; with a time, attempts until
// then, also at a server that isn't up yet.
RetryingConnection connect_once(const Common& common, const Endpoint& endpoint,
                                std::optional<std::chrono::seconds> retry_for = {});

// Complains of what ended a command, or its work at one path, on standard error; with --json also
// as an object on standard output. Gives the exit code.
ExitCode report_failure(const Common& common, const std::string& path, const Error& error,
                        ExitCode missing = ExitCode::file_not_found);

// The same of a command line that can't be run as it is.
ExitCode report_usage(const Common& common, const Error& error);

// Asks the server for the number of the storage whose name --storage told.
Result<std::uint32_t> find_storage(const Common& common, const std::string& name);

// What a command does at one place of the server.
using TargetAction = std::function<Result<void>(RetryingConnection&, const RemotePath&)>;

// Acts on one name after the other, going on after a failure unless the rest would fail likewise.
// Complains of failures. The result: done, the failure of a single name, or some_failed; `missing`
// is what a path that doesn't exist means.
ExitCode for_each_target(const Common& common, const std::vector<std::string>& names,
                         const TargetAction& act, ExitCode missing = ExitCode::file_not_found);

}  // namespace transmit::cli
