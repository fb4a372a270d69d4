// What the callbacks of several connections share: the bound nodes and the files being uploaded.

#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/locker_guard.h"

NorvaneTransmitNode* NorvaneTransmitService::find_node(
    const Kestin::Net::TcpConnectionBase* connection) {
    return connection == nullptr
               ? nullptr
               : static_cast<NorvaneTransmitNode*>(INorvaneSession::of(*connection));
}

void NorvaneTransmitService::add_node(NorvaneTransmitNode* node) {
    const LockerGuard guard(node_locker_);
    node_list_.push_back(node);
}

void NorvaneTransmitService::remove_node(NorvaneTransmitNode* node) {
    const LockerGuard guard(node_locker_);
    node_list_.remove(node);
}

std::uint64_t NorvaneTransmitService::get_node_count() {
    const LockerGuard guard(node_locker_);
    return node_list_.size();
}

void NorvaneTransmitService::release_all_nodes() {
    const LockerGuard guard(node_locker_);
    for (NorvaneTransmitNode* node : node_list_) {
        NorvaneTransmitNode::release_transmit_node(node);
    }
    node_list_.clear();
    transmit_info_list_.clear();
    transmit_statistics_ = {};
    transmit_info_update_time_ = 0;
}

bool NorvaneTransmitService::add_upload_file(const std::string& pathname) {
    const LockerGuard guard(upload_file_locker_);
    return upload_file_set_.insert(pathname).second;
}

void NorvaneTransmitService::remove_upload_file(const std::string& pathname) {
    const LockerGuard guard(upload_file_locker_);
    upload_file_set_.erase(pathname);
}

void NorvaneTransmitService::clear_upload_files() {
    const LockerGuard guard(upload_file_locker_);
    upload_file_set_.clear();
}
