#pragma once

#include <mutex>

#include "kestin_base/thread_annotations.h"
#include "kestin_base/uncopy.h"

namespace Kestin::Base {

// A mutual exclusion lock between the threads of the process, not recursive. Taken through a
// guard only.
class KESTIN_CAPABILITY("mutex") WindowsThreadLocker : private Uncopy {
  public:
    // The name serves nothing on this platform.
    explicit WindowsThreadLocker(const char* name);

    // Blocks until the calling thread holds the lock; always true.
    bool acquire() const KESTIN_ACQUIRE();
    void release() const KESTIN_RELEASE();

  private:
    mutable std::mutex mutex_;
};

}  // namespace Kestin::Base
