#include "src/roster/tally.h"

#include <algorithm>

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
