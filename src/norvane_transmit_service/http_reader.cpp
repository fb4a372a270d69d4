#include "kestin_base/log.h"
#include "src/norvane_transmit_service/http_scan.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/log_place.h"

namespace {

constexpr std::string_view shortest_request = "GET / HTTP/1.1";

}  // namespace

// Keeps nothing between calls but what it leaves in the receive buffer.
bool NorvaneTransmitService::recv_http_data(Kestin::Net::TcpConnectionBase* connection,
                                            bool stop_on_handler_failure) {
    if (connection == nullptr) {
        kestin_debug_log(KESTIN_LOG_DEBUG, LOG_PLACE, "connection is nullptr");
        return false;
    }
    const std::uint64_t size = connection->recv_buffer_size();
    if (size < shortest_request.size()) {
        connection->recv_buffer_need_len(shortest_request.size());
        return true;
    }
    std::string bytes(size, '\0');
    if (!connection->recv_buffer_copy_len(bytes.data(), size)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "recv_buffer_copy_len failed");
        return false;
    }
    return serve_http_requests(*connection, bytes, stop_on_handler_failure);
}

bool NorvaneTransmitService::serve_http_requests(Kestin::Net::TcpConnectionBase& connection,
                                                 const std::string& bytes,
                                                 bool stop_on_handler_failure) {
    HttpScanner scanner(bytes);
    for (;;) {
        const HttpStep step = scanner.next();
        if (step.kind == HttpStep::Kind::invalid) {
            kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "invalid http data: {%s}", bytes.c_str());
            return false;
        }
        if (step.kind == HttpStep::Kind::too_long) {
            kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "http head too long");
            return false;
        }
        if (step.kind == HttpStep::Kind::request) {
            // The answers before this one wait unread, and one more could be refused: the substrate
            // holds the rest back and offers it again when the peer has read.
            if (connection.recv_buffer_size() == 0) {
                return true;
            }
            if (!handle_http(&connection, std::string(step.url))) {
                kestin_debug_log(KESTIN_LOG_DEBUG, LOG_PLACE, "handle_http error");
                if (stop_on_handler_failure) {
                    return false;
                }
            }
        }
        if (!connection.recv_buffer_drop_len(step.drop)) {
            kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "recv_buffer_drop_len failed");
            return false;
        }
        if (step.kind == HttpStep::Kind::wait) {
            return true;
        }
    }
}
