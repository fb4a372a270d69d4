#include <algorithm>

#include "src/norvane_transmit_node/event_lookup.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_node/payload_buffers.h"
#include "src/norvane_transmit_node/upload_blocks.h"

// Plain blocks are written all at once. An enciphered one is written while what it became is still
// in the cache.
message::Status NorvaneTransmitNode::do_handle_upload_file_data_request(
    std::span<const UploadFileTcpEvent::Block> blocks, std::size_t& handled) {
    handled = 1;
    const OperationLog log = operation_log();
    auto* event = find_event<UploadFileTcpEvent>(log);
    if (event == nullptr) {
        return message::status_invalid_connection_data;
    }
    const PayloadBuffers::Use buffers;
    UploadFileTcpEvent::Block plain;
    if (event->encrypted()) {
        plain = blocks.front();
        if (!plain.empty() && !decipher(plain, buffers->converted)) {
            log.error("decrypt data failed (%s)", event->target_path().c_str());
            return message::status_decrypt_failed;
        }
        blocks = {&plain, 1};
    }
    if (UploadBlocks::length_of(blocks) == 0) {
        handled = blocks.size();
        return message::status_ok;
    }
    const std::size_t written = event->write(blocks);
    const SystemCause cause = system_cause();
    handled = std::min(written + 1, blocks.size());
    if (written < blocks.size()) {
        log.error(cause, "write file failed (%s)", event->target_path().c_str());
        return message::status_write_failed;
    }
    event->update_node_record(node_record_);
    return message::status_ok;
}

bool NorvaneTransmitNode::decipher(std::span<const std::uint8_t>& block, ByteArray& plain) const {
    if (!aes_ecb_decrypt_data(payload_key_.data(), payload_key_.size(), block.data(), block.size(),
                              plain)) {
        return false;
    }
    block = plain;
    return true;
}
