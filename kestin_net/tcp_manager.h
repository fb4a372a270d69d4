#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestin_net/tcp_service_base.h"

namespace Kestin::Net {

namespace detail {
class EventLoop;
}

// Listens, accepts and calls the service back. Idle after construction and after `exit`, running in
// between. `init` and `exit` are called by one thread that is none of the substrate's.
class TcpManager {
  public:
    TcpManager();
    ~TcpManager();
    TcpManager(const TcpManager&) = delete;
    TcpManager& operator=(const TcpManager&) = delete;

    // Names the object for all callbacks; before `init`.
    bool set_service(TcpServiceBase* service);

    // Listens on all `port_count` ports (host order) of all local IPv4 addresses and starts
    // `thread_count` threads, which run the callbacks of the first port's connections. While
    // callbacks block some of them, others run in their place, at most 256 more
    // (Lanes::most_blocked). Accepting on every port and the callbacks of the other ports'
    // connections have threads of their own, and a share of the descriptors that the first port's
    // connections can't take (DescriptorShares). A port that stands there twice is listened
    // on once. `idle_seconds`: how long a connection may stay silent; 0, for ever. True only if
    // all ports listen; on false the manager is idle again. Callbacks may begin before it returns.
    bool init(std::uint64_t idle_seconds, std::uint64_t thread_count, const std::uint16_t* ports,
              std::uint64_t port_count);

    // Why the last `init` returned false, in words for a person: "port 30000: Address already in
    // use". Empty after one that returned true.
    const std::string& failure() const { return failure_; }

    // Closes the listening sockets and all connections, each with its on_close, and ends the
    // threads. Waits at most 10 s (stop_limit) for callbacks that run. When it returns, none begins
    // any more. One that still hangs, on a disk for example, may return later: what it uses of the
    // service must outlive it (NetSwitch::running_threads), its connection gets no on_close, and
    // the library never frees what its thread still needs. Nothing to do on an idle manager.
    void exit();

  private:
    TcpServiceBase* service_ = nullptr;
    std::unique_ptr<detail::EventLoop> loop_;
    std::string failure_;
};

}  // namespace Kestin::Net
