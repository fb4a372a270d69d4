#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_node/user_information.h"

// The framing has thrown the bytes away; the client takes the time.
message::Status NorvaneTransmitNode::do_handle_test_upload_data_request(
    const message::TestDataRequest& /*request*/) {
    return message::status_ok;
}

message::Status NorvaneTransmitNode::do_handle_test_download_data_request(
    const message::TestDataRequest& request, std::string& data) {
    data.assign(request.data_length, '\0');
    return message::status_ok;
}

// Takes effect when the pump next looks at the limit.
message::Status NorvaneTransmitNode::do_handle_set_transmit_speed_request(
    const message::SetTransmitSpeedRequest& request) {
    set_send_limit(request.send_speed);
    return message::status_ok;
}

message::Status NorvaneTransmitNode::do_handle_set_user_information_request(
    const message::SetUserInformationRequest& /*request*/, const std::string& text) {
    node_record_.set_user_info(clean_user_information(text));
    return message::status_ok;
}

message::Status NorvaneTransmitNode::do_handle_cleanup_connection_request() {
    set_connection_transmit_event(nullptr);
    return message::status_ok;
}
