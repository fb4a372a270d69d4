#include "kestin_net/net_switch.h"

#include <sys/resource.h>

#include <csignal>

namespace Kestin::Net {
namespace {

// A connection costs a descriptor, and a transfer one more; the usual soft limit of 1024 is meant
// for programs that use select(2). What the system refuses to give is done without.
void raise_descriptor_limit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

NetSwitch& NetSwitch::instance() {
    static NetSwitch net_switch;
    return net_switch;
}

NetSwitch::Thread::Thread() {
    NetSwitch& net_switch = NetSwitch::instance();
    ++net_switch.running_threads_;
    if (void (*function)() = net_switch.thread_start_) {
        function();
    }
}

NetSwitch::Thread::~Thread() {
    --NetSwitch::instance().running_threads_;
}

// Every send of this library asks for no signal by itself; ignoring SIGPIPE covers what writes to
// a broken pipe elsewhere in the process, such as a console that has gone.
bool NetSwitch::init() {
    raise_descriptor_limit();
    return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR;
}

void NetSwitch::exit() {
}

}  // namespace Kestin::Net
