#pragma once

#include "client/detail/batch_run.h"

namespace transmit::detail {

// Attempts a transfer until it succeeds or ends in an error that starting over wouldn't mend. A
// source that changes all the time is given up at last. `start_over` is told the reason and
// prepares for another start, if it can.
template <typename Attempt, typename StartOver>
Result<TransferReport> run_attempts(Worker& worker, Attempt attempt, StartOver start_over) {
    constexpr int most_starts_over = 3;
    for (int starts_over = 0;; ++starts_over) {
        auto outcome = worker.server.run(attempt);
        if (outcome || outcome.error().kind != ErrorKind::file_changed ||
            starts_over == most_starts_over) {
            return outcome;
        }
        if (auto prepared = start_over(outcome.error()); !prepared) {
            return prepared.error();
        }
    }
}

}  // namespace transmit::detail
