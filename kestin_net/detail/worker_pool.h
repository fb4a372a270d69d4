#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <optional>
#include <thread>

#include "kestin_net/detail/mutex.h"
#include "kestin_net/detail/poller.h"
#include "kestin_net/detail/retry_queue.h"
#include "kestin_net/detail/settings.h"

namespace Kestin::Net::detail {

// How often the threads are looked at while none of them waits for events. A thread that is in the
// same handler at two looks counts as blocked.
inline constexpr auto busy_look_interval = std::chrono::milliseconds(5);

// How often they are looked at while there are more threads than usual.
inline constexpr auto quiet_look_interval = std::chrono::milliseconds(250);

// How long a thread beyond the usual number waits for an event before it may end.
inline constexpr auto surplus_patience = std::chrono::milliseconds(1000);

// How many threads a pool has: `usual` ones always; beside blocked ones so many more that `usual`
// are not blocked, up to `most` in all.
struct PoolSize {
    std::uint64_t usual = 1;
    std::uint64_t most = 1;
};

// A poller and the threads that run its handlers. A handler that waits for a disk or a lock
// occupies its thread; others are started in its place, and end when they are no longer needed.
// A watcher decides about that. It sleeps unless the last thread that waited has got an event or
// more threads than usual run, so that an event costs nothing more than two counters.
class WorkerPool {
  public:
    explicit WorkerPool(PoolSize size) : size_(size) {}
    // Waits for all threads, however long they are blocked.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    Poller& poller() { return poller_; }
    RetryQueue& retries() { return retries_; }

    // False: the system has no descriptors left; errno says why.
    bool open();

    // Starts the usual threads and the watcher. Throws std::system_error if the system refuses
    // threads; then `stop` ends those that run.
    void start();

    // Makes every thread end after its present handler and waits for them until `give_up`. False:
    // some are still blocked. These touch the pool and the poller again when their handlers return.
    bool stop(Clock::time_point give_up);

    // How many threads run; callable from every thread.
    std::uint64_t thread_count() const { return thread_count_; }

    // Whether no usual thread but the caller's has anything to do.
    bool others_wait() const { return waiting_.load(std::memory_order_relaxed) + 1 >= size_.usual; }

  private:
    struct Worker {
        // Odd while the thread is in a handler. Written by the thread alone.
        std::atomic<std::uint64_t> steps{0};
        // At the watcher's last look.
        std::uint64_t seen_steps = 0;
        bool has_ended = false;  // under the pool's mutex
        std::thread thread;
    };

    void start_worker() KESTIN_NET_REQUIRES(mutex_);
    void work(Worker& worker);
    std::optional<Poller::Event> wait();
    bool takes_leave();
    void call_watcher();

    void watch();
    void await_look() KESTIN_NET_REQUIRES(mutex_);
    void look() KESTIN_NET_REQUIRES(mutex_);
    std::uint64_t count_blocked() KESTIN_NET_REQUIRES(mutex_);
    bool grow(std::uint64_t count) KESTIN_NET_REQUIRES(mutex_);
    void tell_exhaustion(bool is_exhausted) KESTIN_NET_REQUIRES(mutex_);
    void await_ends(Clock::time_point give_up) KESTIN_NET_REQUIRES(mutex_);
    bool have_all_ended() const KESTIN_NET_REQUIRES(mutex_);
    void join_ended() KESTIN_NET_REQUIRES(mutex_);

    const PoolSize size_;
    Poller poller_;
    RetryQueue retries_;
    std::atomic<std::uint64_t> waiting_{0};
    std::atomic<std::uint64_t> thread_count_{0};
    // How many threads may end; the watcher says so at each look.
    std::atomic<std::int64_t> surplus_{0};
    // Whether the watcher looks often already, so that nobody needs to call it.
    std::atomic<bool> is_alert_ = false;
    std::atomic<bool> is_stopping_ = false;

    Mutex mutex_;
    std::condition_variable_any watcher_call_;
    std::condition_variable_any worker_end_;
    std::list<Worker> workers_ KESTIN_NET_GUARDED_BY(mutex_);
    bool is_exhausted_ KESTIN_NET_GUARDED_BY(mutex_) = false;
    std::thread watcher_;
};

}  // namespace Kestin::Net::detail
