#pragma once

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"

// Holds a locker from construction to destruction.
class KESTIN_SCOPED_CAPABILITY LockerGuard : private Kestin::Base::Uncopy {
  public:
    explicit LockerGuard(const Kestin::Base::WindowsThreadLocker& locker) KESTIN_ACQUIRE(locker)
        : locked_(locker.acquire()), locker_(&locker) {}
    ~LockerGuard() KESTIN_RELEASE() {
        if (locked_) {
            locker_->release();
        }
    }

  private:
    bool locked_;
    const Kestin::Base::WindowsThreadLocker* locker_;
};
