#pragma once

namespace Kestin::Base {

// Empty base of classes whose objects are neither copied nor assigned.
class Uncopy {
  public:
    Uncopy() = default;
    ~Uncopy() = default;
    Uncopy(const Uncopy&) = delete;
    Uncopy& operator=(const Uncopy&) = delete;
};

}  // namespace Kestin::Base
