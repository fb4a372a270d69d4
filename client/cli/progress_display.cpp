#include "client/cli/progress_display.h"

#include <iostream>

#include "client/cli/interrupt.h"
#include "client/cli/progress_view.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"

namespace transmit::cli {
namespace {

constexpr std::chrono::milliseconds tick_length{100};
constexpr std::chrono::seconds line_interval{10};

// Control sequences of ECMA-48: erasing to the line's end and to the screen's, going up, a colour.
constexpr auto erase_line = "\033[K";
constexpr auto erase_below = "\033[J";

std::string up(std::size_t rows) {
    return rows > 0 ? "\033[" + std::to_string(rows) + "A" : std::string();
}

std::string in_yellow(const std::string& text) {
    return can_colour() ? "\033[33m" + text + "\033[m" : text;
}

}  // namespace

ProgressDisplay::ProgressDisplay(BatchProgress progress, Style style)
    : style_(style),
      progress_(std::move(progress)),
      next_line_(Clock::now() + line_interval),
      thread_([this] { run(); }) {
}

ProgressDisplay::~ProgressDisplay() {
    {
        const std::scoped_lock hold(lock_);
        ends_ = true;
    }
    end_.notify_one();
    thread_.join();
    clear();
}

void ProgressDisplay::say(const std::string& line) {
    const std::scoped_lock hold(lock_);
    clear();
    std::cerr << line + "\n";
}

void ProgressDisplay::run() {
    std::unique_lock hold(lock_);
    while (!end_.wait_for(hold, tick_length, [this] { return ends_; })) {
        tick(Clock::now());
    }
}

void ProgressDisplay::tick(Clock::time_point now) {
    const bool due = style_ == Style::lines && now >= next_line_;
    if (due) {
        next_line_ += line_interval;
    }
    if (take_report_wish() || due) {
        clear();
        std::cerr << "transmit: " + progress_line(progress_, now) + "\n";
    }
    if (style_ == Style::bars) {
        draw(now);
    }
}

// In one piece, so that no half of it is seen. The last column stays free: a terminal that is full
// to its edge may break the line or not.
void ProgressDisplay::draw(Clock::time_point now) {
    std::string block = to_start();
    drawn_.clear();
    for (const BarLine& line : progress_bars(progress_, now, terminal_width() - 1)) {
        block += (line.hindered ? in_yellow(line.text) : line.text) + erase_line + "\n";
        drawn_.push_back(columns(line.text));
    }
    std::cerr << block + erase_below;
}

// A terminal that has become narrower breaks the lines that stand on it.
std::string ProgressDisplay::to_start() const {
    const std::size_t width = terminal_width();
    std::size_t rows = 0;
    for (const std::size_t used : drawn_) {
        rows += used == 0 ? 1 : (used + width - 1) / width;
    }
    return up(rows) + "\r";
}

void ProgressDisplay::clear() {
    if (!drawn_.empty()) {
        std::cerr << to_start() + erase_below;
        drawn_.clear();
    }
}

}  // namespace transmit::cli
