#include "kestin_net/detail/shared_bodies.h"

#include <utility>

namespace Kestin::Net::detail {

// One body, which the budget counts unless it refuses to.
class SharedBodies::Held {
  public:
    Held(SharedBodies& owner, Body body)
        : owner_(owner), body_(std::move(body)), is_counted_(owner.budget_.take(body_->size())) {}
    ~Held() {
        if (is_counted_) {
            owner_.budget_.give_back(body_->size());
        }
        owner_.forget(*body_);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    const std::string& body() const { return *body_; }
    bool is_counted() const { return is_counted_; }

  private:
    SharedBodies& owner_;
    const Body body_;
    const bool is_counted_;
};

SharedBodies::Body SharedBodies::hold(const Body& body) {
    // Outlives the guard, because the end of a Held takes the mutex.
    std::shared_ptr<const Held> held;
    const MutexGuard guard(mutex_);
    std::weak_ptr<const Held>& entry = held_[body.get()];
    held = entry.lock();
    if (held == nullptr) {
        held = std::make_shared<const Held>(*this, body);
        entry = held;
    }
    return held->is_counted() ? Body(held, &held->body()) : nullptr;
}

// Another thread may have counted the same body anew in the meantime.
void SharedBodies::forget(const std::string& body) {
    const MutexGuard guard(mutex_);
    const auto entry = held_.find(&body);
    if (entry != held_.end() && entry->second.expired()) {
        held_.erase(entry);
    }
}

}  // namespace Kestin::Net::detail
