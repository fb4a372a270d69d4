#pragma once

#include <cstdint>
#include <string>

#include "bench/contender.h"
#include "bench/peers/peer_process.h"
#include "bench/workspace.h"

namespace bench {

// rsync's daemon, and rsync as the client, which moves whole files and keeps their times.
class Rsync {
  public:
    explicit Rsync(const Workspace& workspace);

    Contender plain() const;

  private:
    std::string folder_;
    std::string files_;
    std::uint16_t port_;
    PeerProcess process_;
};

}  // namespace bench
