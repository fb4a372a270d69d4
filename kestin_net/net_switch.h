#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace Kestin::Net {

// The process-wide state of the network layer: a peer that has gone must show as a failed write,
// never as a signal that ends the process, and as many descriptors may be open as the system's hard
// limit allows. Process singleton; `init` before the first
// TcpManager::init, `exit` after the last TcpManager::exit.
class NetSwitch {
  public:
    static NetSwitch& instance();
    NetSwitch(const NetSwitch&) = delete;
    NetSwitch& operator=(const NetSwitch&) = delete;

    // Names what every thread that the library starts from now on runs first; none by default.
    void set_thread_start(void (*function)()) { thread_start_ = function; }

    // A thread of the library, from its beginning to its end.
    class Thread {
      public:
        Thread();
        ~Thread();
        Thread(const Thread&) = delete;
        Thread& operator=(const Thread&) = delete;
    };

    // How many threads of the library run. After TcpManager::exit these are the ones whose callback
    // hangs. While there are any, the process must not destroy what callbacks use: it ends by
    // _exit(2).
    std::uint64_t running_threads() const { return running_threads_; }

    // Returns false if the system gives no TCP sockets at all. `failure` then says why, in words
    // for a person.
    bool init();
    const std::string& failure() const { return failure_; }
    void exit();

  private:
    NetSwitch() = default;
    ~NetSwitch() = default;

    std::atomic<void (*)()> thread_start_ = nullptr;
    std::atomic<std::uint64_t> running_threads_ = 0;
    std::string failure_;
};

}  // namespace Kestin::Net
