#include "src/norvane_transmit_service/snapshot.h"

#include <algorithm>

#include "kestin_base/clock.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/locker_guard.h"

namespace {

void count(double speed, std::uint64_t& connections, double& max_speed, double& total_speed) {
    ++connections;
    max_speed = std::max(max_speed, speed);
    total_speed += speed;
}

}  // namespace

TransmitStatistics tally(const std::list<NodeRecord>& records) {
    TransmitStatistics totals;
    for (const NodeRecord& record : records) {
        if (record.node_type == NodeType::upload) {
            count(record.node_speed, totals.upload_connection_count, totals.upload_max_speed,
                  totals.upload_total_speed);
        } else if (record.node_type == NodeType::download) {
            count(record.node_speed, totals.download_connection_count, totals.download_max_speed,
                  totals.download_total_speed);
        } else {
            ++totals.message_connection_count;
        }
    }
    return totals;
}

void NorvaneTransmitService::get_transmit_info(std::list<NodeRecord>& records) {
    const LockerGuard guard(node_locker_);
    if (is_transmit_info_due()) {
        refresh_transmit_info();
    }
    records = transmit_info_list_;
}

void NorvaneTransmitService::get_transmit_statistics(TransmitStatistics& statistics) {
    const LockerGuard guard(node_locker_);
    statistics = transmit_statistics_;
}

bool NorvaneTransmitService::is_transmit_info_due() const {
    return transmit_info_dirty_ ||
           Kestin::Base::kestin_time() >=
               transmit_info_update_time_ + settings_.transmit_info_update_interval;
}

void NorvaneTransmitService::refresh_transmit_info() {
    // Cleared before the nodes are read, so that a change meanwhile counts at the next call.
    transmit_info_dirty_ = false;
    transmit_info_list_.resize(node_list_.size());
    auto record = transmit_info_list_.begin();
    for (NorvaneTransmitNode* node : node_list_) {
        node->get_node_record(*record++);
    }
    transmit_statistics_ = tally(transmit_info_list_);
    transmit_statistics_.last_data_update_time = Kestin::Base::kestin_time();
    transmit_info_update_time_ = transmit_statistics_.last_data_update_time;
}
