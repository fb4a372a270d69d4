#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "client/detail/batch_run.h"

namespace transmit::detail {

// Moves small files in runs: all requests of a run with one write, and those of further runs before
// the answers to the former have come, so that neither side waits for the other. Whatever isn't as
// expected is left to the careful way.
class SmallFiles {
  public:
    virtual ~SmallFiles() = default;
    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;

    // Begins with these files, and ends with what was begun before them. Gives back files that need
    // the careful way; if there are any, nothing is under way any more.
    std::vector<std::size_t> move(const std::vector<std::size_t>& files);
    // Ends with all that is under way.
    std::vector<std::size_t> finish();

  protected:
    struct Sent {
        std::size_t file;
        std::int64_t size;
    };
    using Run = std::vector<Sent>;

    // The worker must outlive the object. So many runs may wait for their answers while another is
    // made ready.
    SmallFiles(Worker& worker, std::size_t most_under_way)
        : worker_(worker), most_under_way_(most_under_way) {}

    // Each file goes out with a run, or has ended, or is left over.
    virtual void send(Connection& connection, const std::vector<std::size_t>& files) = 0;
    // Takes a run's answers. On a closed connection too, where there are none.
    virtual void conclude(Connection& connection, const Run& run) = 0;
    // Nothing is under way, and there are files left over.
    virtual void tidy_up(Connection& connection) { (void)connection; }

    void went_out(Run run);
    void conclude_all();
    void leave(std::size_t file) { left_.push_back(file); }
    void moved(const Sent& sent);

    Worker& worker_;

  private:
    void conclude_until(std::size_t count);

    const std::size_t most_under_way_;
    Connection* connection_ = nullptr;
    std::deque<Run> under_way_;  // of `connection_`, which is open unless this is empty
    std::vector<std::size_t> left_;
};

using MoveOne = std::function<Result<TransferReport>(std::size_t file)>;

// A worker's share of a batch: takes files until there are no more, small ones in runs and all
// others, and those left over, one by one.
void move_files(Worker& worker, const BatchRun::IsSmall& is_small, SmallFiles& small_files,
                const MoveOne& move_one);

}  // namespace transmit::detail
