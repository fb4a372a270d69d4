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
    roster_.add(node);
}

void NorvaneTransmitService::remove_node(NorvaneTransmitNode* node) {
    roster_.remove(node);
}

std::uint64_t NorvaneTransmitService::get_node_count() {
    return roster_.size();
}

void NorvaneTransmitService::release_all_nodes() {
    for (PublishedNode* node : roster_.clear()) {
        NorvaneTransmitNode::release_transmit_node(static_cast<NorvaneTransmitNode*>(node));
    }
}

void NorvaneTransmitService::get_transmit_info(std::list<NodeRecord>& records) {
    records = roster_.records();
}

void NorvaneTransmitService::get_transmit_statistics(TransmitStatistics& statistics) {
    statistics = roster_.statistics();
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
