#include <utility>

#include "kestin_base/file.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

std::string line(const std::string& text) {
    return text + "\r\n";
}

std::string head_of(const std::string& status, const std::string& content_type,
                    std::uint64_t size) {
    return line("HTTP/1.1 " + status) + line("Access-Control-Allow-Origin: *") +
           line("Connection: close") + line("Content-Type: " + content_type) +
           line("Content-Length: " + std::to_string(size)) + line("");
}

bool log_refusal(const OperationLog& log, bool is_taken) {
    if (!is_taken) {
        log.error("send_buffer_fill_len failed");
    }
    return is_taken;
}

}  // namespace

// Head and body in one piece: an answer has no continuation in on_send.
bool NorvaneTransmitService::send_http_data(Kestin::Net::TcpConnectionBase* connection,
                                            const void* data, std::uint64_t size,
                                            const std::string& status,
                                            const std::string& content_type) {
    const OperationLog log = operation_log();
    if (connection == nullptr) {
        log.failure(KESTIN_LOG_DEBUG, {}, "connection is nullptr");
        return false;
    }
    std::string answer = head_of(status, content_type, size);
    answer.append(static_cast<const char*>(data), size);
    return log_refusal(log, connection->send_buffer_fill_len(answer.data(), answer.size()));
}

// The document isn't copied: thousands of readers share one.
bool NorvaneTransmitService::send_http_document(Kestin::Net::TcpConnectionBase& connection,
                                                std::shared_ptr<const std::string> document,
                                                const std::string& status) {
    const std::string head = head_of(status, "application/json", document->size());
    return log_refusal(operation_log("send_http_data"),
                       connection.send_buffer_fill_shared(head, std::move(document)));
}

bool NorvaneTransmitService::send_http_file(Kestin::Net::TcpConnectionBase& connection,
                                            const Kestin::Base::File& file,
                                            const std::string& content_type) {
    const auto size = static_cast<std::uint64_t>(file.size_at_open());
    const std::string head = head_of(http_status::ok, content_type, size);
    return log_refusal(operation_log(),
                       connection.send_buffer_fill_file(head, file.descriptor(), size));
}

bool NorvaneTransmitService::send_status_page(Kestin::Net::TcpConnectionBase* connection,
                                              const std::string& status) {
    const std::string page = "<html><head><title>" + status + "</title></head><body><h1>" + status +
                             "</h1></body></html>";
    return send_http_data(connection, page.data(), page.size(), status, "text/html");
}
