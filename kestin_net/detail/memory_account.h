#pragma once

#include <atomic>
#include <cstdint>

#include "kestin_net/detail/memory_budget.h"

namespace Kestin::Net::detail {

// What one connection holds of the memory budget. One thread at a time changes it; every thread may
// ask how much is held.
class MemoryAccount {
  public:
    explicit MemoryAccount(MemoryBudget& budget) : budget_(budget) {}
    MemoryAccount(const MemoryAccount&) = delete;
    MemoryAccount& operator=(const MemoryAccount&) = delete;

    // As those of the budget.
    bool take(std::uint64_t size) { return budget_.take(size) && hold(size); }
    bool take_share(std::uint64_t size) { return budget_.take_share(size, held()) && hold(size); }
    void give_back(std::uint64_t size) {
        budget_.give_back(size);
        let_go(size);
    }

    // What the budget counts elsewhere, since others hold it too.
    bool hold(std::uint64_t size) {
        held_.store(held() + size, std::memory_order_relaxed);
        return true;
    }
    void let_go(std::uint64_t size) { held_.store(held() - size, std::memory_order_relaxed); }

    std::uint64_t held() const { return held_.load(std::memory_order_relaxed); }
    bool is_short() const { return budget_.is_short(); }

  private:
    MemoryBudget& budget_;
    std::atomic<std::uint64_t> held_{0};
};

}  // namespace Kestin::Net::detail
