#include "kestin_net/net_switch.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>

#include "kestin_base/strings.h"
#include "kestin_net/detail/descriptor.h"

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

// SIGPIPE is ignored because sendfile(2), unlike sendmsg(2), has no flag against it.
bool NetSwitch::init() {
    raise_descriptor_limit();
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    const detail::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    failure_ = socket.is_open() ? "" : "TCP sockets: " + Base::kestin_error_text(errno);
    return socket.is_open();
}

void NetSwitch::exit() {
}

}  // namespace Kestin::Net
