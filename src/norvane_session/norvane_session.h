#pragma once

#include <sys/time.h>

#include <cstdint>

#include "kestin_base/uncopy.h"
#include "kestin_net/tcp_connection_base.h"

// Whoever talks over one accepted connection: bound to it, told the peer's address at both ends of
// that bond, and counting what it sends in windows of one second. Used only from the callbacks of
// its connection, hence without a lock.
class INorvaneSession : private Kestin::Base::Uncopy {
  public:
    virtual ~INorvaneSession() = default;

    virtual bool on_recv_connect_response(Kestin::Net::TcpConnectionBase* connection,
                                          const char* peer_address, std::uint16_t peer_port) = 0;
    virtual bool on_recv_disconnect_response(Kestin::Net::TcpConnectionBase* connection,
                                             const char* peer_address, std::uint16_t peer_port) = 0;
    virtual bool on_recv_data(Kestin::Net::TcpConnectionBase* connection) = 0;
    virtual bool on_send_data(Kestin::Net::TcpConnectionBase* connection) = 0;

    // Binds the session to a newly accepted connection, as its user data. False if it is bound
    // already; then it stays so.
    bool recv_connect_response(Kestin::Net::TcpConnectionBase* connection);
    // The connection has ended.
    bool recv_disconnect_response(Kestin::Net::TcpConnectionBase* connection);

    // The session of a connection, null for a connection without one.
    static INorvaneSession* of(const Kestin::Net::TcpConnectionBase& connection);

    // Queues one message, bytes in wire form; either length may be 0. False: the send buffer
    // refused, and the caller has to end the connection, since half a message may stand there.
    bool send_message(Kestin::Net::TcpConnectionBase* connection, const void* header,
                      std::uint32_t header_length, const void* tail, std::uint32_t tail_length);
    bool send_data(Kestin::Net::TcpConnectionBase* connection, const void* data,
                   std::uint32_t length);

    // As send_message, for one that was built in the connection's room for what is sent.
    void send_message_in_room(Kestin::Net::TcpConnectionBase& connection, std::uint32_t length);

    // The object's own address: the same for its whole life, so a pooled session keeps it from one
    // connection to the next.
    std::uint64_t session_id() const;

    // Bytes per window of one second. At 0, where it stands until somebody sets it, the limit is
    // reached at any time.
    bool set_send_limit(std::uint32_t limit);
    bool is_send_limit_reached() const;

  protected:
    INorvaneSession() = default;

    bool is_bound() const { return connection_ != nullptr; }
    void unbind() { connection_ = nullptr; }

  private:
    void count_sent(std::uint32_t length);

    Kestin::Net::TcpConnectionBase* connection_ = nullptr;
    timeval send_window_start_ = {};
    std::uint32_t send_window_bytes_ = 0;
    std::uint32_t send_window_limit_ = 0;
};
