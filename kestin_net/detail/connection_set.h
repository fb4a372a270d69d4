#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "kestin_net/detail/memory_budget.h"
#include "kestin_net/detail/mutex.h"
#include "kestin_net/detail/settings.h"

namespace Kestin::Net::detail {

class TcpConnection;

// Owns every live connection. Callable from every thread.
class ConnectionSet {
  public:
    ConnectionSet();
    ~ConnectionSet();
    ConnectionSet(const ConnectionSet&) = delete;
    ConnectionSet& operator=(const ConnectionSet&) = delete;

    TcpConnection& add(std::unique_ptr<TcpConnection> connection);

    // Closes the connection and destroys it; by the thread that has it.
    void remove(TcpConnection& connection);

    // Breaks each connection that is overdue; the earliest deadline of the others, or
    // Clock::time_point::max().
    Clock::time_point break_overdue(Clock::time_point now);

    // What the connections say of memory: bytes that broken ones will give back, whether one waits
    // for memory, and whether the favorite moves nothing or keeps the others waiting too long.
    struct Pressure {
        std::uint64_t returning = 0;
        bool is_waiting = false;
        bool favorite_stalls = false;
    };
    struct Limits {
        Clock::time_point silent_since;
        Clock::time_point stalled_since;
        Clock::time_point favored_since;
    };

    // Breaks the holders of memory whose peers have moved nothing since `silent_since`, as long as
    // memory is short. If connections wait for memory and there is no favorite, the one that has
    // waited longest becomes it: it may use the reserve until its frame is complete.
    Pressure look_at_memory(const MemoryBudget& budget, const Limits& limits,
                            Clock::time_point now);

    // Breaks the connection that holds the most of the memory budget, if one holds anything.
    void break_largest_holder();

    // Ends each connection whose peer has vanished. True if other peers still have bytes to
    // acknowledge.
    bool check_peers();

    // When no event is served any more: every connection that no thread has gets its last
    // callback. One that the service postpones is repeated until `give_up`. The connections stay.
    void announce_ends(Clock::time_point give_up);

    // Makes every peer see an end; the connections stay.
    void shut_all();

    // Destroys every connection, when no thread has one any more.
    void clear();

  private:
    std::uint64_t returning_memory() const KESTIN_NET_REQUIRES(mutex_);
    void choose_favorite(Pressure& pressure, const Limits& limits, Clock::time_point now) const
        KESTIN_NET_REQUIRES(mutex_);

    Mutex mutex_;
    std::unordered_map<const TcpConnection*, std::unique_ptr<TcpConnection>> connections_
        KESTIN_NET_GUARDED_BY(mutex_);
};

}  // namespace Kestin::Net::detail
