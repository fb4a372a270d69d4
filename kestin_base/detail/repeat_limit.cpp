#include "kestin_base/detail/repeat_limit.h"

#include <algorithm>

namespace Kestin::Base::detail {

bool RepeatLimit::admits(const LineKind& kind, std::size_t size, Clock::time_point now) {
    const std::lock_guard hold(mutex_);
    const Key of_one{kind.format, kind.origin.function, false, kind.origin.session};
    const Key of_all{kind.format, kind.origin.function, true, 0};
    const bool is_watched = sessions_ < most_sessions || windows_.contains(of_one);
    Window* session = is_watched ? &window_of(of_one, kind, now) : nullptr;
    if (session != nullptr && session->is_full(of_session)) {
        ++session->held;
        return false;
    }
    Window& all = window_of(of_all, kind, now);
    if (all.is_full(of_kind)) {
        ++all.held;
        return false;
    }
    if (session != nullptr) {
        session->add(size);
    }
    all.add(size);
    return true;
}

// A window that held lines back is followed by one that is twice as long.
std::vector<HeldLines> RepeatLimit::take_ended(Clock::time_point now) {
    std::vector<HeldLines> ended;
    const std::lock_guard hold(mutex_);
    if (now < next_end_) {
        return ended;
    }
    next_end_ = Clock::time_point::max();
    for (auto at = windows_.begin(); at != windows_.end();) {
        auto& [key, window] = *at;
        if (now >= window.end && window.held == 0) {
            sessions_ -= key.of_all_sessions ? 0 : 1;
            at = windows_.erase(at);
            continue;
        }
        if (now >= window.end) {
            ended.push_back({window.kind, key.of_all_sessions, window.held});
            const Clock::duration length = std::min(2 * window.length, longest_window);
            window = {.kind = window.kind, .end = now + length, .length = length};
        }
        next_end_ = std::min(next_end_, window.end);
        ++at;
    }
    return ended;
}

std::vector<HeldLines> RepeatLimit::take_all() {
    std::vector<HeldLines> all;
    const std::lock_guard hold(mutex_);
    for (const auto& [key, window] : windows_) {
        if (window.held != 0) {
            all.push_back({window.kind, key.of_all_sessions, window.held});
        }
    }
    windows_.clear();
    sessions_ = 0;
    next_end_ = Clock::time_point::max();
    return all;
}

RepeatLimit::Window& RepeatLimit::window_of(const Key& key, const LineKind& kind,
                                            Clock::time_point now) {
    const auto [at, is_new] =
        windows_.try_emplace(key, Window{.kind = kind, .end = now + first_window});
    if (is_new) {
        sessions_ += key.of_all_sessions ? 0 : 1;
        next_end_ = std::min(next_end_, at->second.end);
    }
    return at->second;
}

void RepeatLimit::Window::add(std::size_t size) {
    ++lines;
    bytes += size;
}

}  // namespace Kestin::Base::detail
