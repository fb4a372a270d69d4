#pragma once

#include <memory>
#include <unordered_map>

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
    Mutex mutex_;
    std::unordered_map<const TcpConnection*, std::unique_ptr<TcpConnection>> connections_
        KESTIN_NET_GUARDED_BY(mutex_);
};

}  // namespace Kestin::Net::detail
