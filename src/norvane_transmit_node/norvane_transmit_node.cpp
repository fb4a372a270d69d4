#include "src/norvane_transmit_node/norvane_transmit_node.h"

#include "kestin_base/clock.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

constexpr LogSource log_source{.file = "src/norvane_transmit_node",
                               .class_name = "NorvaneTransmitNode"};

}  // namespace

ObjectPool<NorvaneTransmitNode>& node_pool() {
    static ObjectPool<NorvaneTransmitNode> pool;
    return pool;
}

// A node that was given back while it was bound, as a stopping service does, is made as new here.
NorvaneTransmitNode* NorvaneTransmitNode::acquire_transmit_node() {
    NorvaneTransmitNode* node = node_pool().acquire();
    if (node != nullptr && node->is_bound()) {
        node->unbind();
        node->reset_transmit_node();
    }
    return node;
}

void NorvaneTransmitNode::release_transmit_node(NorvaneTransmitNode* node) {
    node_pool().release(node);
}

NorvaneTransmitNode::NorvaneTransmitNode() {
    reset_transmit_node();
}

NorvaneTransmitNode::~NorvaneTransmitNode() {
    release_event();
}

OperationLog NorvaneTransmitNode::operation_log(const char* function) const {
    return OperationLog(log_source, session_id(), function);
}

bool NorvaneTransmitNode::on_recv_connect_response(Connection* /*connection*/,
                                                   const char* peer_address,
                                                   std::uint16_t peer_port) {
    set_connection_transmit_event(nullptr);
    node_record_.set_peer(peer_address, peer_port);
    node_record_.set_user_info("{}");
    NorvaneTransmitService::instance().add_node(this);
    operation_log().debug("tcp transmit node <%s:%d> connect", peer_address, peer_port);
    return true;
}

bool NorvaneTransmitNode::on_recv_disconnect_response(Connection* connection,
                                                      const char* peer_address,
                                                      std::uint16_t peer_port) {
    // Once given back, the node may serve another connection already.
    const OperationLog log = operation_log();
    set_connection_transmit_event(nullptr);
    NorvaneTransmitService::instance().remove_node(this);
    connection->set_user_data(nullptr);
    return_to_pool();
    log.debug("tcp transmit node <%s:%d> disconnect", peer_address, peer_port);
    return true;
}

bool NorvaneTransmitNode::on_send_data(Connection* connection) {
    turn_rate_window();
    if (!download_active_ || transmit_event_ == nullptr ||
        transmit_event_->event_kind != EventKind::download) {
        return true;
    }
    StoragePass pass;
    if (!pass.enter(transfer_storage_)) {
        connection->postpone();
        return true;
    }
    return send_download_file_data(connection, static_cast<DownloadFileTcpEvent*>(transmit_event_));
}

void NorvaneTransmitNode::set_connection_transmit_event(TcpEventBase* event) {
    const boost::unique_lock<boost::mutex> lock(node_lock_);
    if (event == transmit_event_) {
        return;
    }
    const OperationLog log = operation_log();
    if (transmit_event_ != nullptr) {
        log.debug("clear user data (%s)", transmit_event_->event_name());
        reset_transfer();
    }
    if (event != nullptr) {
        log.debug("set user data (%s)", event->event_name());
        transmit_event_ = event;
        transfer_storage_ = request_storage_;
    }
}

NodeRecord& NorvaneTransmitNode::get_node_record(NodeRecord& out) {
    const std::uint64_t now = Kestin::Base::kestin_time();
    if (rate_window_.is_stale(now)) {
        node_record_.set_speed(0);
        node_record_.set_progress(0);
    } else {
        node_record_.set_speed(rate_window_.speed(node_record_.type(), now));
    }
    node_record_.copy_to(out);
    return out;
}

void NorvaneTransmitNode::reset_transmit_node() {
    const boost::unique_lock<boost::mutex> lock(node_lock_);
    node_record_.reset(session_id());
    rate_window_.clear();
    download_active_ = false;
    release_event();
    if (listing_ticket_ != 0) {
        request_storage_->listings.give_up(listing_ticket_);
    }
    last_listing_size_ = 0;
}

// The type stays: a node whose upload has ended goes on showing as an upload.
void NorvaneTransmitNode::reset_transfer() {
    node_record_.clear_transfer();
    rate_window_.clear();
    download_active_ = false;
    release_event();
}

void NorvaneTransmitNode::release_event() {
    if (transmit_event_ != nullptr) {
        transmit_event_->release();
        transmit_event_ = nullptr;
    }
}

void NorvaneTransmitNode::return_to_pool() {
    reset_transmit_node();
    release_transmit_node(this);
}

void NorvaneTransmitNode::turn_rate_window() {
    rate_window_.turn(Kestin::Base::kestin_time());
}
