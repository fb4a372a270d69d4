#pragma once

#include <cstdint>
#include <string>

#include "bench/contender.h"
#include "bench/peers/peer_process.h"
#include "bench/workspace.h"

namespace bench {

// nginx with sendfile and PUT, one process, as fast as its settings make it; plain and over TLS.
class Nginx {
  public:
    explicit Nginx(const Workspace& workspace);

    Contender plain() const { return contender("nginx", port_, false); }
    Contender over_tls() const { return contender("nginx, TLS", tls_port_, true); }

  private:
    Contender contender(const std::string& name, std::uint16_t port, bool over_tls) const;

    std::uint16_t port_;
    std::uint16_t tls_port_;
    PeerProcess process_;
};

}  // namespace bench
