#include "src/norvane_transmit_service/http_scan.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

constexpr std::string_view shortest_request = "GET / HTTP/1.1";

// The time that a peer has for its next request, from the connection's start or the last answer.
constexpr std::uint64_t request_seconds = 30;

bool drop_http_data(const OperationLog& log, Kestin::Net::TcpConnectionBase& connection,
                    std::uint64_t length) {
    const bool dropped = connection.recv_buffer_drop_len(length);
    if (!dropped) {
        log.error("recv_buffer_drop_len failed");
    }
    return dropped;
}

}  // namespace

// Keeps nothing between calls but what it leaves in the receive buffer.
bool NorvaneTransmitService::recv_http_data(Kestin::Net::TcpConnectionBase* connection,
                                            bool stop_on_handler_failure) {
    const OperationLog log = operation_log();
    if (connection == nullptr) {
        log.debug("connection is nullptr");
        return false;
    }
    const std::uint64_t size = connection->recv_buffer_size();
    if (size < shortest_request.size()) {
        connection->recv_buffer_need_len(shortest_request.size());
        return true;
    }
    std::string bytes(size, '\0');
    if (!connection->recv_buffer_copy_len(bytes.data(), size)) {
        log.error("recv_buffer_copy_len failed");
        return false;
    }
    return serve_http_requests(log, *connection, bytes, stop_on_handler_failure);
}

bool NorvaneTransmitService::serve_http_requests(const OperationLog& log,
                                                 Kestin::Net::TcpConnectionBase& connection,
                                                 const std::string& bytes,
                                                 bool stop_on_handler_failure) {
    HttpScanner scanner(bytes);
    HttpStep step = scanner.next();
    for (; step.kind == HttpStep::Kind::request; step = scanner.next()) {
        // The peer leaves the answers before this one unread, and one more could be refused: the
        // substrate holds the rest back, and offers it again when the peer has read.
        if (connection.recv_buffer_size() == 0) {
            return true;
        }
        const HeldPlace place(is_command(step.url) ? &command_places_ : nullptr);
        if (!place.is_held()) {
            connection.postpone();
            return true;
        }
        if (!handle_http(&connection, std::string(step.url))) {
            log.debug("handle_http error");
            if (stop_on_handler_failure) {
                return false;
            }
        }
        if (!drop_http_data(log, connection, step.drop)) {
            return false;
        }
        expect_http_request(connection);
    }
    if (step.kind == HttpStep::Kind::wait) {
        return drop_http_data(log, connection, step.drop);
    }
    if (step.kind == HttpStep::Kind::too_long) {
        log.error("http head too long");
    } else {
        log.error("invalid http data: {%s}", bytes.c_str());
    }
    return false;
}

void NorvaneTransmitService::expect_http_request(Kestin::Net::TcpConnectionBase& connection) {
    connection.expect_within(HttpScanner::head_limit, request_seconds);
}
