#pragma once

#include <cstdint>

#include "bench/contender.h"
#include "bench/peers/peer_process.h"
#include "bench/workspace.h"

namespace bench {

// vsftpd with anonymous users who may upload; a process for each session.
class Vsftpd {
  public:
    explicit Vsftpd(const Workspace& workspace);

    Contender plain() const;

  private:
    std::uint16_t port_;
    PeerProcess process_;
};

}  // namespace bench
