#pragma once

#include <chrono>
#include <cstdint>

#include "client/connection.h"
#include "client/error.h"

namespace transmit {

struct LinkSpeed {
    std::int64_t bytes = 0;
    std::chrono::nanoseconds time{};

    double bytes_per_second() const {
        const std::chrono::duration<double> seconds = time;
        return seconds.count() > 0 ? static_cast<double>(bytes) / seconds.count() : 0;
    }
};

// The median of `count` round trips, one after the other.
Result<std::chrono::nanoseconds> measure_round_trip(Connection& connection, int count = 10);

// Test data without pause in one direction for about `duration`, with requests sent ahead, so that
// the round-trip time doesn't bound the speed. Neither storages nor files are touched.
Result<LinkSpeed> measure_upload(Connection& connection, std::chrono::milliseconds duration);
Result<LinkSpeed> measure_download(Connection& connection, std::chrono::milliseconds duration);

}  // namespace transmit
