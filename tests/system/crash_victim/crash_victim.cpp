// Crashes as it is told to, under the server's crash filter: crash_victim FAULT THREAD [untraced].
// THREAD is main, worker (a thread of the network library, in a callback) or both, at once. With
// "untraced" the system refuses to let any process trace another.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

#include "kestin_net/net_switch.h"
#include "kestin_net/tcp_manager.h"
#include "src/main/alternate_stack.h"
#include "src/main/crash_filter.h"
#include "tests/support/raw_socket.h"

namespace {

constexpr unsigned seconds_to_live = 60;

// Values that no compiler foresees.
volatile int* volatile nowhere = nullptr;
volatile int zero = 0;

void crash_by_null_write() {
    *nowhere = 1;
}

void crash_by_exception() {
    throw std::runtime_error("nobody catches this");
}

void crash_by_division() {
    volatile int quotient = 7 / zero;
    static_cast<void>(quotient);
}

void crash_by_illegal_instruction() {
    __builtin_trap();
}

void crash_by_bus_error() {
    static_cast<void>(raise(SIGBUS));
}

void crash_by_abort() {
    std::abort();
}

// The frames are large, so that a debugger unwinds few of them.
int overflow_stack(int depth) {
    std::array<volatile char, 100'000> frame;
    frame[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : overflow_stack(depth + 1) + frame[0];
}

void crash_by_stack_overflow() {
    overflow_stack(0);
}

using Crash = void (*)();

Crash crash_named(const std::string& fault) {
    static const std::map<std::string, Crash> crashes{
        {"null_write", crash_by_null_write},
        {"exception", crash_by_exception},
        {"division", crash_by_division},
        {"illegal_instruction", crash_by_illegal_instruction},
        {"bus_error", crash_by_bus_error},
        {"abort", crash_by_abort},
        {"stack_overflow", crash_by_stack_overflow},
    };
    return crashes.at(fault);
}

class CrashingService : public Kestin::Net::TcpServiceBase {
  public:
    CrashingService(Crash crash, std::barrier<>& start) : crash_(crash), start_(start) {}

    bool on_connect(Kestin::Net::TcpConnectionBase*, bool) override { return true; }
    bool on_accept(Kestin::Net::TcpConnectionBase*, std::uint16_t) override {
        start_.arrive_and_wait();
        crash_();
        return true;
    }
    bool on_recv(Kestin::Net::TcpConnectionBase*) override { return false; }
    bool on_send(Kestin::Net::TcpConnectionBase*) override { return true; }
    bool on_close(Kestin::Net::TcpConnectionBase*) override { return true; }

  private:
    Crash crash_;
    std::barrier<>& start_;
};

void refuse_tracing() {
    std::array filter{
        sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ptrace, 0, 1),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{filter.size(), filter.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

}  // namespace

int main(int count, char* argv[]) {
    install_crash_filter();
    alarm(seconds_to_live);
    const Crash crash = crash_named(argv[1]);
    const std::string where = argv[2];
    if (count > 3) {
        refuse_tracing();
    }

    std::barrier<> start(where == "both" ? 2 : 1);
    CrashingService service(crash, start);
    Kestin::Net::NetSwitch::instance().set_thread_start(use_alternate_stack);
    Kestin::Net::TcpManager manager;
    const std::uint16_t port = support::free_port();
    manager.set_service(&service);
    manager.init(0, 2, &port, 1);
    if (where == "main") {
        crash();
    }
    const support::RawSocket peer(port);
    if (where == "both") {
        start.arrive_and_wait();
        crash();
    }
    pause();
}
