#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace bench {

// The user as whom peers run: the caller, or, if that is root, an account without rights.
std::string peer_user();

// A peer's server, started as that user and ready when the object stands. Throws if its program
// isn't installed or its port stays silent.
class PeerProcess {
  public:
    // `command` begins with the program's full path.
    PeerProcess(const std::vector<std::string>& command, std::uint16_t port);

    pid_t pid() const { return process_.pid(); }

  private:
    support::ChildProcess process_;
};

// Writes a file of settings that belongs to that user and is nobody else's to read: the text with
// each name of `values` replaced by its value.
void write_settings(const std::string& path, std::string text,
                    const std::map<std::string, std::string>& values = {});

}  // namespace bench
