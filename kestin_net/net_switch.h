#pragma once

namespace Kestin::Net {

// The process-wide state of the network layer: a peer that has gone must show as a failed write,
// never as a signal that ends the process. Process singleton; `init` before the first
// TcpManager::init, `exit` after the last TcpManager::exit.
class NetSwitch {
  public:
    static NetSwitch& instance();
    NetSwitch(const NetSwitch&) = delete;
    NetSwitch& operator=(const NetSwitch&) = delete;

    bool init();
    void exit();

  private:
    NetSwitch() = default;
    ~NetSwitch() = default;
};

}  // namespace Kestin::Net
