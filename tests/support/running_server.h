#pragma once

#include <optional>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/server_root.h"

namespace support {

// What the server prints once both ports listen.
inline constexpr const char* start_line =
    "tcp transmit service start success, input \"exit\" to stop it\n";

// The real server, running in a root of its own and ready for clients. Ended by SIGKILL when the
// object goes, unless it has been stopped.
class RunningServer {
  public:
    // Returns when both ports listen; throws, with the run log, if the server doesn't come up.
    explicit RunningServer(const ServerSettings& settings = {});

    std::uint16_t transmit_port() const { return root_.transmit_port(); }
    std::uint16_t command_port() const { return root_.command_port(); }
    const ServerRoot& root() const { return root_; }
    std::string storage_folder(std::uint32_t id = 1) const { return root_.storage_folder(id); }
    ChildProcess& process() { return *process_; }
    pid_t pid() const { return process_->pid(); }

    // Stop it by the word on its console, or by a signal, and wait for its end.
    ExitStatus stop();
    ExitStatus stop_by(int signal);

    // Starts it again in the same root, on the same ports.
    void start();

  private:
    ServerRoot root_;
    std::optional<ChildProcess> process_;
};

}  // namespace support
