#include "src/norvane_transmit_node/event_lookup.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_node/payload_buffers.h"
#include "src/shared/log_place.h"

message::Status NorvaneTransmitNode::do_handle_upload_file_data_request(
    std::span<const std::uint8_t> data) {
    auto* event = find_event<UploadFileTcpEvent>();
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    const char* target_path = event->target_path().c_str();
    PayloadBuffers& buffers = PayloadBuffers::of_this_thread();
    if (event->encrypted() && !data.empty()) {
        if (!aes_ecb_decrypt_data(payload_key_.data(), payload_key_.size(), data.data(),
                                  data.size(), buffers.converted)) {
            kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] decrypt data failed (%s)",
                           session_id(), target_path);
            return message::status_decrypt_failed;
        }
        data = buffers.converted;
    }
    if (data.empty()) {
        return message::status_ok;
    }
    const bool is_written = event->write(data.data(), data.size());
    buffers.give_back_large();
    if (!is_written) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] write file failed (%s)", session_id(),
                       target_path);
        return message::status_write_failed;
    }
    event->update_node_record(node_record_);
    return message::status_ok;
}
