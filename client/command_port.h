#pragma once

#include <string>
#include <string_view>

#include "client/error.h"
#include "client/remote.h"
#include "client/wait_limits.h"

namespace transmit {

// Fetches a document of the server's command port over HTTP, such as "/sys/transmit_list". An
// answer other than 200, a head of more than 64 KiB or a body of more than 64 MiB is bad_answer.
Result<std::string> fetch_document(const Endpoint& command_port, std::string_view path,
                                   WaitLimits limits = {});

}  // namespace transmit
