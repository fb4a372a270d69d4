#include "client/detail/batch_run.h"

#include <algorithm>
#include <deque>
#include <thread>

#include "client/detail/pause.h"

namespace transmit::detail {
namespace {

// True if the files that follow would fail likewise.
bool ends_all(const Error& error) {
    return error.kind == ErrorKind::cancelled || error.kind == ErrorKind::no_connection ||
           error.kind == ErrorKind::time_limit;
}

// A server that isn't up yet is waited for, if the policy says so.
Result<void> reach(Worker& worker) {
    return worker.server.run([](Connection&) { return Result<void>(); });
}

}  // namespace

// The batch's time limit ends every wait, as the caller's wish does.
BatchRun::BatchRun(Server server, std::size_t file_count, const TransferOptions& options,
                   TransferObserver& observer)
    : options_(options),
      observer_(observer),
      asked_to_end_(std::move(server.limits.cancelled)),
      server_(std::move(server)),
      started_(file_count) {
    if (options.max_time.count() > 0) {
        deadline_ = Clock::now() + options.max_time;
    }
    server_.limits.cancelled = [this] {
        return overdue() || (asked_to_end_ && asked_to_end_());
    };
}

TransferSummary BatchRun::run(const Work& first, const Work& work, int usual) {
    std::deque<Worker> workers;
    workers.emplace_back(*this);
    if (const auto reached = reach(workers.front()); !reached) {
        summary_.stopped = outcome_of(reached.error());
        return std::move(summary_);
    }
    // From here on a server that can't be reached is one that has gone for a while.
    server_.retry.await_server = true;
    first(workers.front());
    const auto wanted =
        static_cast<std::size_t>(std::max(options_.files_at_once.value_or(usual), 1));
    while (workers.size() < std::min(wanted, started_.size())) {
        workers.emplace_back(*this);
    }
    {
        std::deque<std::jthread> threads;
        for (Worker& worker : workers) {
            threads.emplace_back([&] { work(worker); });
        }
    }
    return std::move(summary_);
}

BatchRun::Share BatchRun::take(const IsSmall& is_small, std::size_t most) {
    const std::lock_guard guard(lock_);
    Share share;
    if (summary_.stopped || next_ == started_.size()) {
        return share;
    }
    share.are_small = is_small(next_);
    do {
        share.files.push_back(next_++);
    } while (share.are_small && share.files.size() < most && next_ < started_.size() &&
             is_small(next_));
    return share;
}

Result<void> BatchRun::wait_for_turn(std::size_t size) const {
    if (options_.limiter &&
        !pause_unless(server_.limits.cancelled, options_.limiter->reserve(size))) {
        return Error{ErrorKind::cancelled, 0, "cancelled"};
    }
    return {};
}

std::size_t BatchRun::step(std::size_t size) const {
    return options_.limiter ? options_.limiter->step(size) : size;
}

void BatchRun::started(std::size_t file) {
    const std::lock_guard guard(lock_);
    if (!started_[file]) {
        started_[file] = true;
        observer_.started(file);
    }
}

void BatchRun::ended(std::size_t file, const Result<TransferReport>& outcome) {
    const std::lock_guard guard(lock_);
    if (outcome) {
        ++(outcome->already_there ? summary_.already_there : summary_.done);
        summary_.moved += outcome->moved;
        observer_.done(file, *outcome);
        return;
    }
    const Error error = outcome_of(outcome.error());
    summary_.failed.push_back({file, error});
    // A server that answered nothing rightly yet is none.
    const bool is_no_server =
        error.kind == ErrorKind::bad_answer && summary_.done == 0 && summary_.already_there == 0;
    if ((ends_all(error) || is_no_server) && !summary_.stopped) {
        summary_.stopped = error;
    }
    observer_.failed(file, error);
}

void BatchRun::refused(Refusal refusal) {
    const std::lock_guard guard(lock_);
    summary_.refused.push_back(std::move(refusal));
}

Error BatchRun::outcome_of(const Error& error) const {
    if (error.kind == ErrorKind::cancelled && overdue() && !(asked_to_end_ && asked_to_end_())) {
        return {ErrorKind::time_limit, 0,
                "the time limit of " + std::to_string(options_.max_time.count()) + " s is over"};
    }
    return error;
}

WaitLimits BatchRun::limits_for(const std::size_t& file) {
    WaitLimits limits = server_.limits;
    limits.stalled = [this, &file] {
        tell([&](TransferObserver& observer) { observer.stalled(file); });
    };
    return limits;
}

Worker::Worker(BatchRun& batch)
    : run(batch),
      server(batch.server().endpoint, batch.limits_for(file), batch.server().retry,
             [this](const Error& reason, std::chrono::milliseconds pause,
                    std::chrono::milliseconds left) {
                 run.tell([&](TransferObserver& observer) {
                     observer.retrying(file, reason, pause, left);
                 });
             }) {
}

}  // namespace transmit::detail
