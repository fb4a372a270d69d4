#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "client/batch.h"

namespace transmit::detail {

class Worker;

// A batch on its way: hands files out to its workers, tells the observer, and sums up.
class BatchRun {
  public:
    using Work = std::function<void(Worker&)>;
    using IsSmall = std::function<bool(std::size_t file)>;
    static constexpr int usual_workers = 4;

    // `observer` and `options` must outlive the run.
    BatchRun(Server server, std::size_t file_count, const TransferOptions& options,
             TransferObserver& observer);

    // Runs `first` on one worker, then `work` on all of them, each in a thread, and comes back when
    // all have ended. The options tell how many there are, else `usual`. Nothing runs if the server
    // can't be reached.
    TransferSummary run(const Work& first, const Work& work, int usual = usual_workers);

    // One file, or small ones that follow each other.
    struct Share {
        std::vector<std::size_t> files;
        bool are_small = false;
    };
    // The next file; if it is small, also small ones behind it, up to `most` in all. Empty at the
    // end.
    Share take(const IsSmall& is_small, std::size_t most);

    const Server& server() const { return server_; }
    // The limits of a connection that works on this file, whose stalls are told.
    WaitLimits limits_for(const std::size_t& file);
    const TransferOptions& options() const { return options_; }
    // True once the caller, or the time limit, wants the batch to end.
    bool cancelled() const { return server_.limits.cancelled(); }
    // Waits until so many bytes may be moved.
    Result<void> wait_for_turn(std::size_t size) const;
    // The most bytes to move after one such wait.
    std::size_t step(std::size_t size) const;

    // What becomes of files; for several threads at once. A second start counts for nothing.
    void started(std::size_t file);
    void ended(std::size_t file, const Result<TransferReport>& outcome);
    void refused(Refusal refusal);
    // Anything else that the observer is to be told.
    template <typename Tell>
    void tell(Tell tell) {
        const std::lock_guard guard(lock_);
        tell(observer_);
    }

  private:
    using Clock = std::chrono::steady_clock;

    bool overdue() const { return deadline_ && Clock::now() >= *deadline_; }
    Error outcome_of(const Error& error) const;

    const TransferOptions& options_;
    TransferObserver& observer_;
    std::optional<Clock::time_point> deadline_;
    std::function<bool()> asked_to_end_;
    Server server_;

    std::mutex lock_;  // of all below and of the observer
    std::size_t next_ = 0;
    std::vector<bool> started_;
    TransferSummary summary_;
};

// One connection of a batch, for one thread, and the file that it is at.
class Worker {
  public:
    explicit Worker(BatchRun& run);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    BatchRun& run;
    std::size_t file = 0;
    RetryingConnection server;
};

}  // namespace transmit::detail
