#pragma once

#include <atomic>
#include <cstdint>

#include "kestin_net/tcp_service_base.h"

namespace Kestin::Net::detail {

// The way to the service, which can be closed: a thread whose callback hung while the event loop
// stopped finds it closed when that callback returns at last.
class CallbackGate {
  public:
    explicit CallbackGate(TcpServiceBase& service) : service_(service) {}

    void close() { is_closed_ = true; }

    bool on_accept(TcpConnectionBase* connection, std::uint16_t port) {
        return is_open() && service_.on_accept(connection, port);
    }
    bool on_recv(TcpConnectionBase* connection) {
        return is_open() && service_.on_recv(connection);
    }
    bool on_send(TcpConnectionBase* connection) {
        return is_open() && service_.on_send(connection);
    }
    void on_close(TcpConnectionBase* connection) {
        if (is_open()) {
            service_.on_close(connection);
        }
    }

  private:
    bool is_open() const { return !is_closed_.load(std::memory_order_relaxed); }

    TcpServiceBase& service_;
    std::atomic<bool> is_closed_ = false;
};

}  // namespace Kestin::Net::detail
