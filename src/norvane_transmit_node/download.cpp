#include <cstddef>
#include <cstring>

#include "src/norvane_transmit_node/event_lookup.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/framing.h"
#include "src/norvane_transmit_node/payload_buffers.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

// Chunks of one batch at most, so that one callback doesn't run for the length of a file.
constexpr int chunks_per_batch = 500;

}  // namespace

// The file isn't opened yet, and a transfer that runs on this node ends only with success.
message::Status NorvaneTransmitNode::do_handle_download_file_prepare_request(
    const message::DownloadFilePrepareRequest& request, const std::string& path,
    message::DownloadFilePrepareResponse& response) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const std::string file_path = NorvaneTransmitService::instance().make_transmit_path(
        request.storage_id, request.user_id, path.c_str(), false);
    if (file_path.size() > longest_transfer_path) {
        return refuse_access(log, SystemCause{ENAMETOOLONG}, file_path);
    }
    Kestin::Base::PathFacts facts;
    if (const auto status = examine_path(log, file_path, facts); status != message::status_ok) {
        return status;
    }
    if (facts.is_directory) {
        log.warning("path is a directory (%s)", file_path.c_str());
        return message::status_path_is_directory;
    }
    DownloadFileTcpEvent::Pointer event = DownloadFileTcpEvent::acquire();
    if (event == nullptr) {
        log.error("acquire new download event failed (%s)", DownloadFileTcpEvent::name);
        return message::status_acquire_event_failed;
    }
    event->set_file(request.encrypted != 0, file_path, facts.size);
    set_connection_transmit_event(event.release());
    response.file_size = facts.size;
    response.file_time = facts.time;
    return message::status_ok;
}

message::Status NorvaneTransmitNode::do_handle_download_file_data_request(
    const message::DownloadFileDataRequest& request) {
    const OperationLog log = operation_log();
    auto* event = find_event<DownloadFileTcpEvent>(log);
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    const char* path = event->path().c_str();
    if (!event->open()) {
        log.error(system_cause(), "open file to read failed (%s)", path);
        return message::status_open_read_failed;
    }
    if (!event->seek(request.offset)) {
        log.error(system_cause(), "offset file failed (%s : %I64d)", path, request.offset);
        return message::status_seek_failed;
    }
    log.debug("download file begin (%s)", path);
    download_active_ = true;
    return message::status_ok;
}

// What one message carries of the file. Either it is built in the room of the send buffer, behind
// the place of its header, or `payload` is sent, which is cipher text for a ciphered download.
struct NorvaneTransmitNode::DownloadChunk {
    std::byte* room = nullptr;
    std::string_view payload;
    std::uint32_t length = 0;  // in the file
};

// The pump: one bounded batch into the send buffer, the next when the connection can take it.
bool NorvaneTransmitNode::send_download_file_data(Connection* connection,
                                                  DownloadFileTcpEvent* event) {
    if (event == nullptr) {
        return false;
    }
    const OperationLog log = operation_log();
    std::int64_t sent = 0;
    for (int number = 0; number < chunks_per_batch; ++number) {
        if (event->close_at_end()) {
            download_active_ = false;
            return send_download_data_response(connection, message::status_ok, {});
        }
        DownloadChunk chunk;
        if (const auto status = read_chunk(log, *connection, *event, chunk);
            status != message::status_ok) {
            return end_download(connection, status);
        }
        if (chunk.length != 0) {
            if (!send_chunk(*connection, chunk)) {
                return false;
            }
            sent += static_cast<std::int64_t>(chunk.payload.size() + sizeof(message::DataResponse));
            rate_window_.count_out(chunk.length + sizeof(message::DataResponse));
            event->update_node_record(sent, node_record_);
        }
        // At least one chunk goes out before the limits are looked at.
        if (is_send_limit_reached() || connection->send_buffer_is_full()) {
            break;
        }
    }
    return true;
}

// Whole chunks that aren't ciphered are read to where they are sent from; smaller ones would leave
// much of a room's memory unused. A length of 0: the end of the file.
message::Status NorvaneTransmitNode::read_chunk(const OperationLog& log, Connection& connection,
                                                DownloadFileTcpEvent& event,
                                                DownloadChunk& chunk) const {
    constexpr std::uint32_t chunk_size = PayloadBuffers::chunk_size;
    PayloadBuffers& buffers = PayloadBuffers::of_this_thread();
    char* place = buffers.chunk.data();
    if (!event.encrypted() && event.has_left(chunk_size)) {
        chunk.room = connection.send_buffer_room(sizeof(message::DataResponse) + chunk_size);
    }
    if (chunk.room != nullptr) {
        place = reinterpret_cast<char*>(chunk.room) + sizeof(message::DataResponse);
    }
    if (!event.read(place, chunk_size, chunk.length)) {
        log.error(system_cause(), "read file failed (%s)", event.path().c_str());
        return message::status_read_failed;
    }
    chunk.payload = {place, chunk.length};
    if (chunk.length != 0 && event.encrypted() && !encipher(chunk.payload, buffers.converted)) {
        log.error("encrypt data failed (%s)", event.path().c_str());
        return message::status_encrypt_failed;
    }
    return message::status_ok;
}

bool NorvaneTransmitNode::send_chunk(Connection& connection, const DownloadChunk& chunk) {
    if (chunk.room == nullptr) {
        return send_download_data_response(&connection, message::status_ok, chunk.payload);
    }
    message::DataResponse header{.type = message::DownloadFileData::response_type,
                                 .status = message::status_ok,
                                 .data_length = chunk.length};
    message::to_network_order(header);
    std::memcpy(chunk.room, &header, sizeof header);
    send_message_in_room(connection, sizeof header + chunk.length);
    return true;
}

// Turns `payload` into its cipher text, which lies in `ciphered` from here on.
bool NorvaneTransmitNode::encipher(std::string_view& payload, ByteArray& ciphered) const {
    if (!aes_ecb_encrypt_data(payload_key_.data(), payload_key_.size(),
                              reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size(),
                              ciphered)) {
        return false;
    }
    payload = {reinterpret_cast<const char*>(ciphered.data()), ciphered.size()};
    return true;
}

bool NorvaneTransmitNode::send_download_data_response(Connection* connection,
                                                      message::Status status,
                                                      std::string_view data) {
    message::DataResponse response{};
    response.type = message::DownloadFileData::response_type;
    response.status = status;
    return send_response(connection, response, data);
}

// A stream that failed, or couldn't begin, ends with its status; so does whatever transfer there
// is.
bool NorvaneTransmitNode::end_download(Connection* connection, message::Status status) {
    set_connection_transmit_event(nullptr);
    return send_download_data_response(connection, status, {});
}

// Doesn't wait for the end of the file: this is how a client stops a running stream.
message::Status NorvaneTransmitNode::do_handle_download_file_finish_request() {
    const OperationLog log = operation_log();
    auto* event = find_event<DownloadFileTcpEvent>(log);
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    log.debug("download file end (%s)", event->path().c_str());
    set_connection_transmit_event(nullptr);
    return message::status_ok;
}
