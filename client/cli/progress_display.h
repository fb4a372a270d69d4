#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/cli/progress.h"

namespace transmit::cli {

// Shows a batch's progress on standard error while it lives, by a thread of its own: bars, which
// are drawn anew ten times a second, or a line each ten seconds, or nothing. SIGUSR1 brings a line
// whatever the style. Takes what else is to be said, so that bars and lines never mix. All members
// may be called from several threads.
class ProgressDisplay {
  public:
    enum class Style { bars, lines, none };

    ProgressDisplay(BatchProgress progress, Style style);
    // Ends the thread and clears the bars away.
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    // `change` takes a BatchProgress& and the time, and is brief.
    template <typename Change>
    void update(Change change) {
        const std::scoped_lock hold(lock_);
        change(progress_, Clock::now());
    }

    // One line, without its end, above the bars.
    void say(const std::string& line);

    Style style() const { return style_; }

  private:
    void run();
    void tick(Clock::time_point now);
    void draw(Clock::time_point now);
    // What takes the cursor to the first line of the bars.
    std::string to_start() const;
    void clear();

    const Style style_;
    std::mutex lock_;
    BatchProgress progress_;
    std::vector<std::size_t> drawn_;  // columns of each line that stands on the terminal
    Clock::time_point next_line_;
    bool ends_ = false;
    std::condition_variable end_;
    std::thread thread_;
};

}  // namespace transmit::cli
