#pragma once

#include <string>
#include <vector>

#include "client/cli/commands.h"
#include "client/cli/progress_display.h"
#include "client/transfer_observer.h"

namespace transmit::cli {

// A file of a batch as its two ends name it.
struct TransferNames {
    std::string source;
    std::string target;
};

// Tells what becomes of each file of a batch: the display, and a line or an object for what a
// person or a program asked to know.
class TransferReporter : public TransferObserver {
  public:
    TransferReporter(const Common& common, bool dry_run, std::vector<TransferNames> names,
                     ProgressDisplay& display)
        : common_(common), dry_run_(dry_run), names_(std::move(names)), display_(display) {}

    void started(std::size_t file) override;
    void placed(std::size_t file, const std::string& path) override;
    void progressed(std::size_t file, const Progress& progress) override;
    void stalled(std::size_t file) override;
    void retrying(std::size_t file, const Error& reason, std::chrono::milliseconds pause,
                  std::chrono::milliseconds left) override;
    void started_over(std::size_t file, const std::string& reason) override;
    void done(std::size_t file, const TransferReport& report) override;
    void failed(std::size_t file, const Error& error) override;

  private:
    void say(std::size_t file, const std::string& text);
    void tell_plan(std::size_t file, const TransferReport& report);

    const Common& common_;
    bool dry_run_;
    std::vector<TransferNames> names_;
    ProgressDisplay& display_;
};

}  // namespace transmit::cli
