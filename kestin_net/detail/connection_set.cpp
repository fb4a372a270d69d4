#include "kestin_net/detail/connection_set.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "kestin_net/detail/close_reason.h"
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

ConnectionSet::Pressure ConnectionSet::look_at_memory(const MemoryBudget& budget,
                                                      const Limits& limits, Clock::time_point now) {
    const MutexGuard guard(mutex_);
    Pressure pressure;
    pressure.returning = returning_memory();
    for (const auto& [address, connection] : connections_) {
        const bool is_silent = connection->holds_silently_since(limits.silent_since, now);
        if (is_silent && !connection->is_broken() && budget.is_short(pressure.returning)) {
            connection->break_off(close_reason::silent_holder);
            pressure.returning += connection->held_memory();
        }
    }
    choose_favorite(pressure, limits, now);
    return pressure;
}

// Of those that are broken already; their memory is back when a thread has ended them.
std::uint64_t ConnectionSet::returning_memory() const {
    std::uint64_t returning = 0;
    for (const auto& [address, connection] : connections_) {
        returning += connection->is_broken() ? connection->held_memory() : 0;
    }
    return returning;
}

void ConnectionSet::choose_favorite(Pressure& pressure, const Limits& limits,
                                    Clock::time_point now) const {
    TcpConnection* favorite = nullptr;
    TcpConnection* longest_waiting = nullptr;
    for (const auto& [address, connection] : connections_) {
        if (connection->is_broken()) {
            continue;
        }
        if (connection->is_favorite()) {
            favorite = connection.get();
        } else if (connection->waits_for_memory() &&
                   (longest_waiting == nullptr ||
                    connection->waiting_since() < longest_waiting->waiting_since())) {
            longest_waiting = connection.get();
        }
    }
    const bool others_wait = longest_waiting != nullptr;
    pressure.is_waiting = favorite != nullptr || others_wait;
    if (favorite != nullptr) {
        pressure.favorite_stalls = (others_wait || favorite->waits_for_memory()) &&
                                   favorite->is_stalled(limits.stalled_since, limits.favored_since);
    } else if (others_wait) {
        longest_waiting->favor(now);
    }
}

void ConnectionSet::break_largest_holder() {
    TcpConnection* largest = nullptr;
    std::uint64_t most = 0;
    const MutexGuard guard(mutex_);
    for (const auto& [address, connection] : connections_) {
        const std::uint64_t held = connection->is_broken() ? 0 : connection->held_memory();
        if (held > most) {
            largest = connection.get();
            most = held;
        }
    }
    if (largest != nullptr) {
        largest->break_off(close_reason::largest_holder);
    }
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
