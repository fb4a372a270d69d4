#include "src/norvane_session/norvane_session.h"

#include <bit>
#include <string>

#include "kestin_base/clock.h"
#include "src/shared/operation_log.h"

using Kestin::Net::TcpConnectionBase;

namespace {

constexpr LogSource log_source{.file = "src/norvane_session", .class_name = "INorvaneSession"};

// A window lasts one second to the microsecond, its end included; a clock that went back ends it
// too.
bool has_left_window(const timeval& start, const timeval& now) {
    if (now.tv_sec == start.tv_sec + 1) {
        return now.tv_usec > start.tv_usec;
    }
    return now.tv_sec != start.tv_sec;
}

struct Peer {
    std::string address;
    std::uint16_t port = 0;
};

Peer peer_of(TcpConnectionBase& connection) {
    Peer peer;
    connection.get_peer_address(peer.address, peer.port);
    return peer;
}

}  // namespace

bool INorvaneSession::recv_connect_response(TcpConnectionBase* connection) {
    if (connection == nullptr) {
        return false;
    }
    const OperationLog log(log_source, session_id());
    if (is_bound()) {
        log.error("recv unexpected connect response");
        return false;
    }
    connection->set_user_data(this);
    connection_ = connection;
    const Peer peer = peer_of(*connection);
    log.debug("recv connect response");
    return on_recv_connect_response(connection, peer.address.c_str(), peer.port);
}

bool INorvaneSession::recv_disconnect_response(TcpConnectionBase* connection) {
    if (connection == nullptr) {
        return false;
    }
    if (connection == connection_) {
        unbind();
    }
    const Peer peer = peer_of(*connection);
    OperationLog(log_source, session_id()).debug("recv disconnect response");
    return on_recv_disconnect_response(connection, peer.address.c_str(), peer.port);
}

INorvaneSession* INorvaneSession::of(const TcpConnectionBase& connection) {
    return static_cast<INorvaneSession*>(connection.get_user_data());
}

bool INorvaneSession::send_message(TcpConnectionBase* connection, const void* header,
                                   std::uint32_t header_length, const void* tail,
                                   std::uint32_t tail_length) {
    const bool sent = (header_length == 0 || send_data(connection, header, header_length)) &&
                      (tail_length == 0 || send_data(connection, tail, tail_length));
    if (!sent) {
        OperationLog(log_source, session_id()).error("send data failed");
        return false;
    }
    count_sent(header_length + tail_length);
    return true;
}

void INorvaneSession::send_message_in_room(TcpConnectionBase& connection, std::uint32_t length) {
    connection.send_buffer_commit(length);
    count_sent(length);
}

void INorvaneSession::count_sent(std::uint32_t length) {
    const timeval now = Kestin::Base::kestin_gettimeofday();
    if (has_left_window(send_window_start_, now)) {
        send_window_start_ = now;
        send_window_bytes_ = 0;
    }
    send_window_bytes_ += length;
}

bool INorvaneSession::send_data(TcpConnectionBase* connection, const void* data,
                                std::uint32_t length) {
    return connection != nullptr && connection->send_buffer_fill_len(data, length);
}

std::uint64_t INorvaneSession::session_id() const {
    return std::bit_cast<std::uint64_t>(this);
}

bool INorvaneSession::set_send_limit(std::uint32_t limit) {
    send_window_limit_ = limit;
    return true;
}

bool INorvaneSession::is_send_limit_reached() const {
    return send_window_bytes_ >= send_window_limit_;
}
