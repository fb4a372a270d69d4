#pragma once

#include <cstdint>
#include <string>

#include "bench/contender.h"
#include "bench/peers/peer_process.h"
#include "bench/workspace.h"

namespace bench {

// OpenSSH's server with its built-in sftp, and its sftp program as the client.
class Sshd {
  public:
    explicit Sshd(const Workspace& workspace);

    Contender sftp() const;

  private:
    std::string folder_;
    std::string files_;
    std::uint16_t port_;
    PeerProcess process_;
};

}  // namespace bench
