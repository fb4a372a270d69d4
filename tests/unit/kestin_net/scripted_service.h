#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "kestin_net/tcp_service_base.h"

namespace kestin_net_test {

using Connection = Kestin::Net::TcpConnectionBase;

inline constexpr std::chrono::seconds wait_limit{20};

// How often something has happened; whoever needs it waits for it.
class Tally {
  public:
    void add() {
        const std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    std::uint64_t count() const {
        const std::lock_guard lock(mutex_);
        return count_;
    }
    // False: it didn't happen `count` times within the limit.
    bool await(std::uint64_t count, std::chrono::milliseconds limit = wait_limit) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return count_ >= count; });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::uint64_t count_ = 0;
};

// A service whose callbacks a test gives as functions; without one, it takes the connection, takes
// all bytes and sends nothing. It counts its callbacks and notes when two of one connection
// overlap.
class ScriptedService final : public Kestin::Net::TcpServiceBase {
  public:
    std::function<bool(Connection&, std::uint16_t port)> accept;
    std::function<bool(Connection&)> recv;
    std::function<bool(Connection&)> send;
    std::function<void(Connection&)> close;

    Tally accepts, recvs, sends, closes, overlaps;

    bool on_connect(Connection*, bool) override { return true; }
    bool on_accept(Connection* connection, std::uint16_t port) override {
        const Visit visit(*this, connection);
        const bool taken = !accept || accept(*connection, port);
        accepts.add();
        return taken;
    }
    bool on_recv(Connection* connection) override {
        const Visit visit(*this, connection);
        recvs.add();
        return recv ? recv(*connection)
                    : connection->recv_buffer_drop_len(connection->recv_buffer_size());
    }
    bool on_send(Connection* connection) override {
        const Visit visit(*this, connection);
        const bool goes_on = !send || send(*connection);
        sends.add();
        return goes_on;
    }
    bool on_close(Connection* connection) override {
        const Visit visit(*this, connection);
        if (close) {
            close(*connection);
        }
        closes.add();
        return false;
    }

  private:
    class Visit {
      public:
        Visit(ScriptedService& service, const Connection* connection)
            : service_(service), connection_(connection) {
            const std::lock_guard lock(service_.visits_mutex_);
            if (!service_.visited_.insert(connection_).second) {
                service_.overlaps.add();
            }
        }
        ~Visit() {
            const std::lock_guard lock(service_.visits_mutex_);
            service_.visited_.erase(connection_);
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

      private:
        ScriptedService& service_;
        const Connection* connection_;
    };

    std::mutex visits_mutex_;
    std::set<const Connection*> visited_;
};

// Takes `size` bytes out of the receive buffer.
inline std::string take(Connection& connection, std::uint64_t size) {
    std::string bytes(size, '\0');
    return connection.recv_buffer_move_len(bytes.data(), size) ? bytes : "fewer bytes";
}

inline bool send_back(Connection& connection, const std::string& bytes) {
    return connection.send_buffer_fill_len(bytes.data(), bytes.size());
}

inline bool echo(Connection& connection) {
    return send_back(connection, take(connection, connection.recv_buffer_size()));
}

// Whether the process comes to rest: a tenth of a second in which it uses next to no processor
// time. What spins never does, however busy the machine is.
inline bool comes_to_rest() {
    const auto used = [] {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    for (int attempt = 0; attempt < 600; ++attempt) {
        const auto before = used();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (used() - before < std::chrono::milliseconds(2)) {
            return true;
        }
    }
    return false;
}

}  // namespace kestin_net_test
