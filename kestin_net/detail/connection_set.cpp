#include "kestin_net/detail/connection_set.h"

#include <algorithm>
#include <thread>
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

void ConnectionSet::close_all(Clock::time_point give_up) {
    decltype(connections_) closing;
    {
        const MutexGuard guard(mutex_);
        closing.swap(connections_);
    }
    const auto is_closed = [](const auto& entry) {
        return entry.second->announce_end();
    };
    while (std::erase_if(closing, is_closed), !closing.empty() && Clock::now() < give_up) {
        std::this_thread::sleep_for(retry_interval);
    }
}

}  // namespace Kestin::Net::detail
