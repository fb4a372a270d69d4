#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <tuple>
#include <vector>

#include "kestin_base/log.h"
#include "kestin_base/uncopy.h"

namespace Kestin::Base::detail {

// A line of a log, without its arguments.
struct LineKind {
    KESTIN_LOG_LEVEL level;
    LogOrigin origin;
    const char* format;
};

// How many lines of one kind were held back, of the kind's session or of all sessions together.
struct HeldLines {
    LineKind kind;
    bool of_all_sessions;
    std::uint64_t count;
};

// Keeps one client's faults from filling a log: decides which lines are written, and counts the
// others. Lines are of one kind if they come from one operation and have one format. Of each kind
// and session a few lines pass within a second; of each kind, over all sessions, a larger number,
// since a client can open a new session for each fault. While a flood goes on, its seconds grow to
// longest_window. Callable from every thread.
class RepeatLimit : private Uncopy {
  public:
    using Clock = std::chrono::steady_clock;

    // What passes in one window: the line that exceeds a budget's bytes still does.
    struct Budget {
        std::uint64_t lines;
        std::size_t bytes;
    };
    static constexpr Budget of_session{.lines = 5, .bytes = 4096};
    static constexpr Budget of_kind{.lines = 100, .bytes = 32768};
    static constexpr Clock::duration first_window = std::chrono::seconds(1);
    static constexpr Clock::duration longest_window = std::chrono::seconds(16);
    // Sessions that are watched at a time; lines of further ones count only for their kind.
    static constexpr std::size_t most_sessions = 1024;

    // Whether a line of `size` bytes is to be written. One that isn't is counted.
    bool admits(const LineKind& kind, std::size_t size, Clock::time_point now);

    // Hands out the counts of the windows that have ended by `now`.
    std::vector<HeldLines> take_ended(Clock::time_point now);
    // Hands out all counts and starts anew.
    std::vector<HeldLines> take_all();

  private:
    struct Key {
        const char* format;
        const char* function;
        bool of_all_sessions;
        std::uint64_t session;
        bool operator<(const Key& other) const {
            return std::tie(format, function, of_all_sessions, session) <
                   std::tie(other.format, other.function, other.of_all_sessions, other.session);
        }
    };
    struct Window {
        LineKind kind;
        Clock::time_point end;
        Clock::duration length = first_window;
        std::uint64_t lines = 0;
        std::size_t bytes = 0;
        std::uint64_t held = 0;

        bool is_full(const Budget& budget) const {
            return lines >= budget.lines || bytes >= budget.bytes;
        }
        void add(std::size_t size);
    };

    Window& window_of(const Key& key, const LineKind& kind, Clock::time_point now);

    std::mutex mutex_;  // held for all that follows
    // One for each kind (the program has about a hundred) and at most most_sessions others.
    std::map<Key, Window> windows_;
    std::size_t sessions_ = 0;
    Clock::time_point next_end_ = Clock::time_point::max();
};

}  // namespace Kestin::Base::detail
