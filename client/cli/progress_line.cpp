#include "client/cli/progress_line.h"

#include <iomanip>
#include <iostream>
#include <sstream>

#include "client/cli/terminal.h"

namespace transmit::cli {
namespace {

constexpr std::chrono::milliseconds refresh{100};

std::string shown_duration(double seconds) {
    const auto whole = static_cast<std::int64_t>(seconds);
    std::ostringstream text;
    text << whole / 3600 << std::setfill('0') << ':' << std::setw(2) << whole / 60 % 60 << ':'
         << std::setw(2) << whole % 60;
    return text.str();
}

std::string shown_percent(double done, double total) {
    const auto percent = static_cast<int>(total > 0 ? 100 * done / total : 100);
    return std::string(percent < 10    ? 2
                       : percent < 100 ? 1
                                       : 0,
                       ' ') +
           std::to_string(percent) + " %";
}

}  // namespace

ProgressLine::ProgressLine(std::string_view name, bool quiet)
    : name_(shown(name)), width_(quiet ? 0 : terminal_width()) {
}

// Back to the line's start, and clear it (ECMA-48, EL).
ProgressLine::~ProgressLine() {
    if (width_ > 0) {
        std::cerr << "\r\033[K";
    }
}

void ProgressLine::show(const Progress& progress) {
    if (width_ == 0 || Clock::now() < next_) {
        return;
    }
    next_ = Clock::now() + refresh;
    const std::string line = text(progress);
    const std::string name =
        name_.substr(0, width_ > line.size() + 2 ? width_ - line.size() - 2 : 0);
    std::cerr << "\r\033[K" + name + " " + line;
}

std::string ProgressLine::text(const Progress& progress) const {
    const auto done = static_cast<double>(progress.done);
    const auto total = static_cast<double>(progress.total);
    const std::chrono::duration<double> elapsed = Clock::now() - start_;
    const auto moved = static_cast<double>(progress.done - progress.resumed_from);
    const double speed = elapsed.count() > 0 ? moved / elapsed.count() : 0;
    std::string line = shown_percent(done, total) + "  " + shown_size(done) + " of " +
                       shown_size(total) + "  " + shown_size(speed) + "/s";
    if (speed > 0) {
        line += "  " + shown_duration((total - done) / speed) + " left";
    }
    return line;
}

}  // namespace transmit::cli
