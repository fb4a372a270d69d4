#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "kestin_net/detail/memory_budget.h"
#include "kestin_net/detail/mutex.h"

namespace Kestin::Net::detail {

// The bodies that wait in send chains by reference. The budget counts each of them once, however
// many chains hold it. Callable from every thread.
class SharedBodies {
  public:
    explicit SharedBodies(MemoryBudget& budget) : budget_(budget) {}
    SharedBodies(const SharedBodies&) = delete;
    SharedBodies& operator=(const SharedBodies&) = delete;

    using Body = std::shared_ptr<const std::string>;

    // Returns a reference to the body. The budget counts the body until the last such reference is
    // gone. Null: the budget refuses the body.
    Body hold(const Body& body);

  private:
    class Held;

    void forget(const std::string& body);

    MemoryBudget& budget_;
    Mutex mutex_;
    std::unordered_map<const std::string*, std::weak_ptr<const Held>> held_
        KESTIN_NET_GUARDED_BY(mutex_);
};

}  // namespace Kestin::Net::detail
