#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/error.h"
#include "client/remote.h"

namespace transmit::cli {

// A path on a server. Nothing about it has been asked of the server yet.
struct Target {
    Endpoint server;
    RemotePath path;
};

// HOST, HOST:PORT or :PORT; what is left out comes from `defaults`. A host of digits alone is
// refused: it would be a forgotten slash or a port without its colon.
Result<Endpoint> parse_endpoint(std::string_view text, const Endpoint& defaults);

// Reads "/path", a path in the server and storage of `defaults`, or "HOST[:PORT]/STORAGE[/path]".
// Whether a name is one of the server or of this machine is told by its place on the command line,
// never by its look. Errors are invalid_request; among them is a backslash, which the server would
// take for a separator.
Result<Target> parse_target(std::string_view text, const Target& defaults);

// All of them, which have to be on one server.
Result<std::vector<Target>> parse_targets(const std::vector<std::string>& texts,
                                          const Target& defaults);

}  // namespace transmit::cli
