#include "kestin_net/detail/worker_pool.h"

#include <algorithm>
#include <system_error>

#include "kestin_base/log.h"
#include "kestin_net/net_switch.h"

namespace Kestin::Net::detail {

WorkerPool::~WorkerPool() {
    stop(Clock::time_point::max());
}

bool WorkerPool::open() {
    return poller_.open() && retries_.open(poller_);
}

void WorkerPool::start() {
    const MutexGuard guard(mutex_);
    while (workers_.size() < size_.usual) {
        start_worker();
    }
    watcher_ = std::thread([this] { watch(); });
}

bool WorkerPool::stop(Clock::time_point give_up) {
    {
        const MutexGuard guard(mutex_);
        is_stopping_ = true;
        watcher_call_.notify_all();
    }
    if (watcher_.joinable()) {
        watcher_.join();
    }
    poller_.stop();
    const MutexGuard guard(mutex_);
    await_ends(give_up);
    join_ended();
    return workers_.empty();
}

void WorkerPool::start_worker() {
    Worker& worker = workers_.emplace_back();
    ++thread_count_;
    try {
        worker.thread = std::thread([this, &worker] { work(worker); });
    } catch (...) {
        --thread_count_;
        workers_.pop_back();
        throw;
    }
}

void WorkerPool::work(Worker& worker) {
    const NetSwitch::Thread counted;
    while (!is_stopping_) {
        const std::optional<Poller::Event> event = wait();
        if (!event) {
            if (takes_leave()) {
                break;
            }
        } else if (event->handler != nullptr && !is_stopping_) {
            const std::uint64_t steps = worker.steps.load(std::memory_order_relaxed);
            worker.steps.store(steps + 1, std::memory_order_relaxed);
            event->handler->handle_events(event->events);
            worker.steps.store(steps + 2, std::memory_order_relaxed);
        }
    }
    --thread_count_;
    const MutexGuard guard(mutex_);
    worker.has_ended = true;
    worker_end_.notify_all();
}

// Here waiting_ is written before is_alert_ is read, in `await_look` it is the other way round: one
// of both sides always sees that nobody waits.
std::optional<Poller::Event> WorkerPool::wait() {
    const bool may_leave = thread_count_.load(std::memory_order_relaxed) > size_.usual;
    ++waiting_;
    const auto event = may_leave ? poller_.wait_for(surplus_patience) : poller_.wait();
    if (--waiting_ == 0 && !is_alert_) {
        call_watcher();
    }
    return event;
}

bool WorkerPool::takes_leave() {
    std::int64_t surplus = surplus_;
    while (surplus > 0 && !surplus_.compare_exchange_weak(surplus, surplus - 1)) {
    }
    return surplus > 0;
}

void WorkerPool::call_watcher() {
    const MutexGuard guard(mutex_);
    watcher_call_.notify_one();
}

void WorkerPool::watch() {
    const MutexGuard guard(mutex_);
    while (!is_stopping_) {
        await_look();
        look();
    }
}

void WorkerPool::await_look() {
    is_alert_ = false;
    if (waiting_ > 0 && workers_.size() > size_.usual) {
        watcher_call_.wait_for(mutex_, quiet_look_interval);
    } else if (waiting_ > 0) {
        watcher_call_.wait(mutex_);
    }
    is_alert_ = true;
    watcher_call_.wait_for(mutex_, busy_look_interval);
}

void WorkerPool::look() {
    join_ended();
    const std::uint64_t unblocked = workers_.size() - count_blocked();
    if (unblocked < size_.usual && !is_stopping_) {
        tell_exhaustion(!grow(size_.usual - unblocked));
    } else {
        tell_exhaustion(false);
    }
    surplus_ = static_cast<std::int64_t>(std::max(unblocked, size_.usual) - size_.usual);
}

std::uint64_t WorkerPool::count_blocked() {
    std::uint64_t count = 0;
    for (Worker& worker : workers_) {
        const std::uint64_t steps = worker.steps.load(std::memory_order_relaxed);
        const bool is_in_handler = steps % 2 == 1;
        count += is_in_handler && steps == worker.seen_steps ? 1 : 0;
        worker.seen_steps = steps;
    }
    return count;
}

// False: not one thread more can be had.
bool WorkerPool::grow(std::uint64_t count) {
    const std::uint64_t wanted = std::min(workers_.size() + count, size_.most);
    const std::uint64_t before = workers_.size();
    try {
        while (workers_.size() < wanted) {
            start_worker();
        }
    } catch (const std::exception&) {
        // Without memory or another thread the present ones go on.
    }
    return workers_.size() > before;
}

void WorkerPool::tell_exhaustion(bool is_exhausted) {
    if (is_exhausted && !is_exhausted_) {
        kestin_run_log(
            KESTIN_LOG_ERROR, "kestin_net", "WorkerPool::look", __LINE__,
            "callbacks block %I64u threads and no more can be started: does a disk hang? "
            "Other requests wait",
            static_cast<std::uint64_t>(workers_.size()));
    }
    is_exhausted_ = is_exhausted;
}

void WorkerPool::await_ends(Clock::time_point give_up) {
    while (!have_all_ended()) {
        if (give_up == Clock::time_point::max()) {
            worker_end_.wait(mutex_);
        } else if (worker_end_.wait_until(mutex_, give_up) == std::cv_status::timeout) {
            return;
        }
    }
}

bool WorkerPool::have_all_ended() const {
    return std::all_of(workers_.begin(), workers_.end(),
                       [](const Worker& worker) { return worker.has_ended; });
}

void WorkerPool::join_ended() {
    for (auto worker = workers_.begin(); worker != workers_.end();) {
        if (worker->has_ended) {
            worker->thread.join();
            worker = workers_.erase(worker);
        } else {
            ++worker;
        }
    }
}

}  // namespace Kestin::Net::detail
