#pragma once

#include <mutex>

// Which lock guards what, in the words of clang's thread safety analysis, which checks them when
// clang compiles; other compilers see nothing.
#if defined(__clang__)
#define KESTIN_NET_ANNOTATION(text) __attribute__((text))
#else
#define KESTIN_NET_ANNOTATION(text)
#endif

#define KESTIN_NET_GUARDED_BY(mutex) KESTIN_NET_ANNOTATION(guarded_by(mutex))
#define KESTIN_NET_REQUIRES(mutex) KESTIN_NET_ANNOTATION(requires_capability(mutex))

namespace Kestin::Net::detail {

class KESTIN_NET_ANNOTATION(capability("mutex")) Mutex {
  public:
    void lock() KESTIN_NET_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() KESTIN_NET_ANNOTATION(release_capability()) { mutex_.unlock(); }

  private:
    std::mutex mutex_;
};

class KESTIN_NET_ANNOTATION(scoped_lockable) MutexGuard {
  public:
    explicit MutexGuard(Mutex& mutex) KESTIN_NET_ANNOTATION(acquire_capability(mutex))
        : mutex_(mutex) {
        mutex_.lock();
    }
    ~MutexGuard() KESTIN_NET_ANNOTATION(release_capability()) { mutex_.unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace Kestin::Net::detail
