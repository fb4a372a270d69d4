#include "kestin_base/locker.h"

namespace Kestin::Base {

WindowsThreadLocker::WindowsThreadLocker(const char* /*name*/) {
}

bool WindowsThreadLocker::acquire() const {
    mutex_.lock();
    return true;
}

void WindowsThreadLocker::release() const {
    mutex_.unlock();
}

}  // namespace Kestin::Base
