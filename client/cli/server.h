#pragma once

#include "client/cli/commands.h"
#include "client/connection.h"
#include "client/retrying_connection.h"

namespace transmit::cli {

// How the program waits: as long as was asked for, and until SIGINT.
WaitLimits wait_limits(const Common& common);

// One connection, for commands that ask and are done.
Result<Connection> connect(const Common& common);

// A connection for transfers, which tells of its pauses on standard error.
RetryingConnection connect_stubbornly(const Common& common);

}  // namespace transmit::cli
