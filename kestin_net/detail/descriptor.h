#pragma once

#include <unistd.h>

#include <utility>

namespace Kestin::Net::detail {

// Owns one open descriptor, or none.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, none)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (is_open()) {
            ::close(number_);
        }
    }

    bool is_open() const { return number_ != none; }
    int number() const { return number_; }

  private:
    static constexpr int none = -1;
    int number_ = none;
};

}  // namespace Kestin::Net::detail
