#pragma once

#include <cstdint>

#include "kestin_net/tcp_connection_base.h"

namespace Kestin::Net {

// Whom the substrate calls. Callbacks of different connections run at the same time, on the
// substrate's threads; two callbacks of one connection never do. A false from on_accept, on_recv
// or on_send ends the connection, and nothing else of the service does. An exception out of a
// callback is a fault of the program and ends the process.
class TcpServiceBase {
  public:
    TcpServiceBase() = default;
    virtual ~TcpServiceBase() = default;
    TcpServiceBase(const TcpServiceBase&) = delete;
    TcpServiceBase& operator=(const TcpServiceBase&) = delete;

    // An outgoing connection stands or failed; this substrate makes none.
    virtual bool on_connect(TcpConnectionBase* connection, bool connected) = 0;

    // A connection was accepted on the listening `port`. The first callback of each connection, in
    // the order in which those of one port were made; on false it is closed and no other follows,
    // on_close neither.
    virtual bool on_accept(TcpConnectionBase* connection, std::uint16_t port) = 0;

    // Bytes came. Called again while a call removed some and some remain; what is left then waits
    // for more.
    virtual bool on_recv(TcpConnectionBase* connection) = 0;

    // The connection can take bytes: its send buffer is below its mark. Called again and again
    // until four calls in a row have appended nothing; then the next on_recv starts it anew.
    virtual bool on_send(TcpConnectionBase* connection) = 0;

    // The connection has ended, for whatever reason. The last callback, once for each connection
    // that on_accept took; repeated while it calls `postpone`. The result counts for nothing.
    virtual bool on_close(TcpConnectionBase* connection) = 0;
};

}  // namespace Kestin::Net
