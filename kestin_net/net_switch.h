#pragma once

#include <atomic>

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
    // On a thread of the library, before all else.
    void run_thread_start() const;

    bool init();
    void exit();

  private:
    NetSwitch() = default;
    ~NetSwitch() = default;

    std::atomic<void (*)()> thread_start_ = nullptr;
};

}  // namespace Kestin::Net
