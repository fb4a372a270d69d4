#pragma once

#include <cstdint>

// The totals over all node records of one snapshot; copied whole. Speeds in bytes per second.
struct TransmitStatistics {
    std::uint64_t message_connection_count = 0;
    std::uint64_t upload_connection_count = 0;
    std::uint64_t download_connection_count = 0;
    double upload_max_speed = 0;
    double download_max_speed = 0;
    double upload_total_speed = 0;
    double download_total_speed = 0;
    // Seconds, of kestin_time: when the snapshot was complete.
    std::uint64_t last_data_update_time = 0;
};
