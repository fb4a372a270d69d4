#pragma once

#include <atomic>

#include "kestin_base/uncopy.h"

// Bounds how many callbacks do one kind of work at a time. Nobody waits for a place: a callback
// that gets none is postponed. Every function may be called from any thread.
class Places : private Kestin::Base::Uncopy {
  public:
    explicit Places(int count = 0) : count_(count) {}

    // Called while nobody enters.
    void set_count(int count) { count_ = count; }

    // Takes a place, if there is one. While several callbacks are refused, another may be refused
    // although a place is free.
    bool enter() {
        const bool is_free = taken_.fetch_add(1, std::memory_order_relaxed) < count_;
        if (!is_free) {
            leave();
        }
        return is_free;
    }
    void leave() { taken_.fetch_sub(1, std::memory_order_relaxed); }

  private:
    int count_;
    std::atomic<int> taken_ = 0;
};

// A place for as long as the object lives, if there was one. Null: none is needed.
class HeldPlace : private Kestin::Base::Uncopy {
  public:
    explicit HeldPlace(Places* places)
        : places_(places), is_held_(places == nullptr || places->enter()) {}
    ~HeldPlace() {
        if (is_held_ && places_ != nullptr) {
            places_->leave();
        }
    }

    bool is_held() const { return is_held_; }

  private:
    Places* places_;
    bool is_held_;
};
