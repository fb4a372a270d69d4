#pragma once

#include <list>
#include <memory>
#include <new>

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"
#include "src/shared/locker_guard.h"

// Idle objects of one class, handed out again oldest first. Callable from every thread. An object
// that was acquired belongs to the caller until it is released; what is idle when the pool ends is
// destroyed with it.
template <typename Object>
class ObjectPool : private Kestin::Base::Uncopy {
  public:
    // The oldest idle object, or a new one; null if none can be constructed.
    Object* acquire() {
        {
            const LockerGuard guard(locker_);
            if (!idle_.empty()) {
                Object* object = idle_.front().release();
                idle_.pop_front();
                return object;
            }
        }
        try {
            return std::make_unique<Object>().release();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    // Takes the object back and sets the caller's pointer to null. Null is ignored. An object that
    // there is no memory to keep is destroyed.
    void release(Object*& object) noexcept {
        if (object == nullptr) {
            return;
        }
        std::unique_ptr<Object> returned(object);
        object = nullptr;
        try {
            const LockerGuard guard(locker_);
            idle_.push_back(std::move(returned));
        } catch (const std::bad_alloc&) {
        }
    }

  private:
    Kestin::Base::WindowsThreadLocker locker_{nullptr};
    std::list<std::unique_ptr<Object>> idle_ KESTIN_GUARDED_BY(locker_);
};
