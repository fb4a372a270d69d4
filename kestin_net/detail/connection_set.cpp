#include "kestin_net/detail/connection_set.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

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

bool ConnectionSet::check_peers() {
    bool is_any_awaited = false;
    const MutexGuard guard(mutex_);
    for (const auto& [address, connection] : connections_) {
        is_any_awaited = connection->check_peer() || is_any_awaited;
    }
    return is_any_awaited;
}

void ConnectionSet::announce_ends(Clock::time_point give_up) {
    std::vector<TcpConnection*> open;
    {
        const MutexGuard guard(mutex_);
        for (const auto& [address, connection] : connections_) {
            if (!connection->is_held()) {
                open.push_back(connection.get());
            }
        }
    }
    const auto has_ended = [](TcpConnection* connection) {
        return connection->announce_end();
    };
    while (std::erase_if(open, has_ended), !open.empty() && Clock::now() < give_up) {
        std::this_thread::sleep_for(retry_interval);
    }
}

void ConnectionSet::shut_all() {
    const MutexGuard guard(mutex_);
    for (const auto& [address, connection] : connections_) {
        connection->shut();
    }
}

void ConnectionSet::clear() {
    decltype(connections_) closing;
    const MutexGuard guard(mutex_);
    closing.swap(connections_);
}

}  // namespace Kestin::Net::detail
