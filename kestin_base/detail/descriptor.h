#pragma once

#include <unistd.h>

#include "kestin_base/uncopy.h"

namespace Kestin::Base::detail {

// Owns a file descriptor, which may be -1 for none.
class Descriptor : private Uncopy {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }

    int number() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

  private:
    int number_;
};

}  // namespace Kestin::Base::detail
