#include "client/cli/progress_line.h"

#include <array>
#include <cstdio>

#include "client/cli/terminal.h"

namespace transmit::cli {
namespace {

constexpr std::chrono::milliseconds refresh{100};

std::string shown_duration(double seconds) {
    const auto whole = static_cast<long long>(seconds);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                  whole % 60);
    return text.data();
}

}  // namespace

ProgressLine::ProgressLine(std::string name, bool quiet)
    : name_(shown(name)), width_(quiet ? 0 : terminal_width()) {
}

// Back to the line's start, and clear it (ECMA-48, EL).
ProgressLine::~ProgressLine() {
    if (width_ > 0) {
        std::fputs("\r\033[K", stderr);
    }
}

void ProgressLine::show(const Progress& progress) {
    if (width_ == 0 || Clock::now() < next_) {
        return;
    }
    next_ = Clock::now() + refresh;
    std::string line = text(progress);
    const std::string name =
        name_.substr(0, width_ > line.size() + 2 ? width_ - line.size() - 2 : 0);
    std::fprintf(stderr, "\r\033[K%s %s", name.c_str(), line.c_str());
    std::fflush(stderr);
}

std::string ProgressLine::text(const Progress& progress) const {
    const auto done = static_cast<double>(progress.done);
    const auto total = static_cast<double>(progress.total);
    const std::chrono::duration<double> elapsed = Clock::now() - start_;
    const double moved = static_cast<double>(progress.done - progress.resumed_from);
    const double speed = elapsed.count() > 0 ? moved / elapsed.count() : 0;
    std::array<char, 8> percent{};
    std::snprintf(percent.data(), percent.size(), "%3.0f %%", total > 0 ? 100 * done / total : 100);
    std::string line = std::string(percent.data()) + "  " + shown_size(done) + " of " +
                       shown_size(total) + "  " + shown_size(speed) + "/s";
    if (speed > 0) {
        line += "  " + shown_duration((total - done) / speed) + " left";
    }
    return line;
}

}  // namespace transmit::cli
