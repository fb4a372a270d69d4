#pragma once

#include <string>

#include "tests/support/running_server.h"
#include "tests/support/temporary_folder.h"
#include "trials/injector/fault_order.h"

namespace trials {

// What is to fail, and how: the calls of that kind from number `first` on, counted from the order.
struct Fault {
    faults::Call call;
    int error;
    int first = 1;
    int count = 1;
};

// A running server whose calls of the system fail as ordered. One order at a time.
class FaultyServer {
  public:
    explicit FaultyServer(const support::ServerSettings& settings = {});

    support::RunningServer& server() { return *server_; }

    void order(const Fault& fault);
    void end_order();
    // From here on, or no longer, calls on files below `faults::hanging_folder` hang.
    void set_hanging(bool hangs) { order_->hangs = hangs; }
    int hanging_calls() const { return order_->hanging; }
    // Whether anything has failed since the order.
    bool has_failed() const { return order_->failed > 0; }
    // How many calls of the last order's kind were made while it stood.
    int calls() const { return order_->seen; }

  private:
    support::TemporaryFolder folder_;
    faults::Order* order_ = nullptr;
    std::optional<support::RunningServer> server_;
};

}  // namespace trials
