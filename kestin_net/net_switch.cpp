#include "kestin_net/net_switch.h"

#include <csignal>

namespace Kestin::Net {

NetSwitch& NetSwitch::instance() {
    static NetSwitch net_switch;
    return net_switch;
}

void NetSwitch::run_thread_start() const {
    if (void (*function)() = thread_start_) {
        function();
    }
}

// Every send of this library asks for no signal by itself; ignoring SIGPIPE covers what writes to
// a broken pipe elsewhere in the process, such as a console that has gone.
bool NetSwitch::init() {
    return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
}

void NetSwitch::exit() {
}

}  // namespace Kestin::Net
