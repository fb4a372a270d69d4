#include "kestin_base/file_system.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

message::Status NorvaneTransmitNode::do_handle_get_storage_information_request(
    std::string& document) {
    if (!NorvaneTransmitService::instance().make_storage_information(document)) {
        operation_log().error("make storage information failed");
        return message::status_make_storage_information_failed;
    }
    return message::status_ok;
}

// The wire has room for the low 16 bits of the count.
message::Status NorvaneTransmitNode::do_handle_get_norvane_node_count_request(
    message::NodeCountResponse& response) {
    response.node_count =
        static_cast<std::uint16_t>(NorvaneTransmitService::instance().get_node_count());
    return message::status_ok;
}

// A hidden storage is a good one.
message::Status NorvaneTransmitNode::do_handle_check_storage_id_request(
    const message::CheckStorageIdRequest& request) {
    return find_storage(operation_log(), request.storage_id) ? message::status_ok
                                                             : message::status_invalid_storage_id;
}

message::Status NorvaneTransmitNode::do_handle_create_directory_request(
    const message::PathRequest& request, const std::string& path) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const auto& service = NorvaneTransmitService::instance();
    const std::string directory =
        service.make_transmit_path(request.storage_id, request.user_id, path.c_str(), true);
    if (!service.may_create_in(request.storage_id) || !make_directory(directory)) {
        log.error(system_cause(), "create directory failed (%s)", directory.c_str());
        return message::status_create_directory_failed;
    }
    return message::status_ok;
}
