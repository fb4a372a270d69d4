#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace support {

// What a proxy's line is like; 0 is no bound.
struct Line {
    std::chrono::milliseconds delay{0};  // each way
    std::uint64_t bytes_per_second = 0;  // each way of a connection
};

// A TCP proxy on 127.0.0.1 in front of a server's port, which can delay, slow, hold, cut and
// silence what goes through.
class Proxy {
  public:
    explicit Proxy(std::uint16_t target, Line line = {});
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    std::uint16_t port() const { return port_; }

    // Bytes that went through so far.
    std::uint64_t to_server() const { return to_server_; }
    std::uint64_t to_client() const { return to_client_; }

    // After so many bytes more, in both directions together, nothing goes through any more until a
    // cut, a silence or a release.
    void hold_after(std::uint64_t bytes);
    // Waits until that has come; false if it doesn't within half a minute.
    bool await_hold();

    // Resets all connections; new ones go through.
    void cut();
    // Clients hear nothing more on the connections that there are, while the server is told of
    // their end, as by its own look after dead peers; new ones go through.
    void silence();
    void release();

  private:
    class Way;
    struct Link;
    enum class Fate { alive, cut, silent };

    void accept_all();
    void serve(Link& link);
    // Counts bytes that are about to go through; how many of them may.
    std::size_t take(std::size_t wanted);
    void give_back(std::size_t size);
    bool is_open();
    void end_links(Fate fate);

    const std::uint16_t target_;
    const Line line_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<std::uint64_t> to_server_ = 0;
    std::atomic<std::uint64_t> to_client_ = 0;
    std::atomic<bool> ending_ = false;

    std::mutex lock_;
    std::condition_variable held_;
    bool holds_ = false;
    std::uint64_t until_hold_ = 0;
    std::deque<std::unique_ptr<Link>> links_;
    std::thread acceptor_;
};

}  // namespace support
