#pragma once

#include <atomic>
#include <cstdint>

#include "src/shared/node_record.h"

// The counters behind node_speed: bytes in and out since the window's start. Written from the
// callbacks of the node's connection, read by whoever takes the snapshot. Times are seconds of
// kestin_time.
class RateWindow {
  public:
    // How far a handler came; two equal marks say that it took nothing.
    struct Mark {
        std::uint64_t start = 0;
        std::uint64_t bytes_in = 0;
        bool operator==(const Mark&) const = default;
    };

    // Starts a new window if the present one is older than 30 seconds.
    void turn(std::uint64_t now);
    void clear();
    void count_in(std::uint64_t bytes) { add(rate_bytes_in_, bytes); }
    void count_out(std::uint64_t bytes) { add(rate_bytes_out_, bytes); }
    Mark mark() const;

    // No callback has turned the window for so long that its figures say nothing any more.
    bool is_stale(std::uint64_t now) const;
    // Bytes per second of what a node of that type is there for.
    double speed(NodeType type, std::uint64_t now) const;

  private:
    using Counter = std::atomic<std::uint64_t>;

    static std::uint64_t value(const Counter& counter) {
        return counter.load(std::memory_order_relaxed);
    }
    // There is one writer, so no addition gets lost.
    static void add(Counter& counter, std::uint64_t bytes) {
        counter.store(value(counter) + bytes, std::memory_order_relaxed);
    }

    Counter rate_window_start_ = 0;
    Counter rate_bytes_in_ = 0;
    Counter rate_bytes_out_ = 0;
};
