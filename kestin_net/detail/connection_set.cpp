#include "kestin_net/detail/connection_set.h"

#include <algorithm>
#include <utility>

#include "kestin_net/detail/tcp_connection.h"

namespace Kestin::Net::detail {

ConnectionSet::ConnectionSet() = default;
ConnectionSet::~ConnectionSet() = default;

TcpConnection& ConnectionSet::add(std::unique_ptr<TcpConnection> connection) {
    TcpConnection& added = *connection;
    const MutexGuard guard(mutex_);
    connections_.emplace(&added, std::move(connection));
    return added;
}

void ConnectionSet::remove(TcpConnection& connection) {
    std::unique_ptr<TcpConnection> removed;
    const MutexGuard guard(mutex_);
    const auto found = connections_.find(&connection);
    removed = std::move(found->second);
    connections_.erase(found);
}

Clock::time_point ConnectionSet::break_overdue(Clock::time_point now) {
    auto earliest = Clock::time_point::max();
    const MutexGuard guard(mutex_);
    for (const auto& [address, connection] : connections_) {
        earliest = std::min(earliest, connection->break_if_overdue(now));
    }
    return earliest;
}

void ConnectionSet::close_all() {
    decltype(connections_) closing;
    {
        const MutexGuard guard(mutex_);
        closing.swap(connections_);
    }
    for (const auto& [address, connection] : closing) {
        connection->announce_end();
    }
}

}  // namespace Kestin::Net::detail
