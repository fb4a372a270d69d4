#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "client/transfer.h"

namespace transmit::cli {

// One line of a terminal that tells how far a transfer has come, about ten times a second, and is
// gone when the transfer is over. Without a terminal on standard error it does nothing.
class ProgressLine {
  public:
    ProgressLine(std::string_view name, bool quiet);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(const Progress& progress);

  private:
    using Clock = std::chrono::steady_clock;

    std::string text(const Progress& progress) const;

    std::string name_;
    std::size_t width_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

}  // namespace transmit::cli
