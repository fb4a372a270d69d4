#include "src/norvane_transmit_node/rate_window.h"

#include <algorithm>

namespace {

constexpr std::uint64_t window_seconds = 30;
constexpr std::uint64_t stale_seconds = 45;

}  // namespace

void RateWindow::turn(std::uint64_t now) {
    if (now > value(rate_window_start_) + window_seconds) {
        clear();
        rate_window_start_.store(now, std::memory_order_relaxed);
    }
}

void RateWindow::clear() {
    rate_window_start_.store(0, std::memory_order_relaxed);
    rate_bytes_in_.store(0, std::memory_order_relaxed);
    rate_bytes_out_.store(0, std::memory_order_relaxed);
}

RateWindow::Mark RateWindow::mark() const {
    return {value(rate_window_start_), value(rate_bytes_in_)};
}

bool RateWindow::is_stale(std::uint64_t now) const {
    return now >= value(rate_window_start_) + stale_seconds;
}

double RateWindow::speed(NodeType type, std::uint64_t now) const {
    std::uint64_t amount = 0;
    if (type != NodeType::download) {
        amount += value(rate_bytes_in_);
    }
    if (type != NodeType::upload) {
        amount += value(rate_bytes_out_);
    }
    const std::uint64_t elapsed = std::max<std::uint64_t>(now - value(rate_window_start_), 1);
    return static_cast<double>(amount) / static_cast<double>(elapsed);
}
