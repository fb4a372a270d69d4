#include "src/main/stop_signals.h"

#include <array>
#include <atomic>
#include <ctime>

namespace {

constexpr std::array ignored_signals{SIGPIPE, SIGXFSZ, SIGTTIN, SIGTTOU};

std::atomic<bool> signalled = false;
std::atomic<bool> stopping = false;
static_assert(std::atomic<bool>::is_always_lock_free, "used by a signal handler");

// One terminal that closes sends SIGHUP twice: the shell passes on its own, and the kernel sends
// another when the shell ends. Hence one from the kernel is never the second.
void on_stop_signal(int signal, siginfo_t* information, void* /*context*/) {
    const bool is_repeated = signal == SIGHUP && information->si_code == SI_KERNEL;
    if (!stopping || !signalled) {
        signalled = true;
    } else if (!is_repeated) {
        static_cast<void>(std::signal(signal, SIG_DFL));
        static_cast<void>(raise(signal));  // blocked here, delivered on return
    }
}

bool is_ignored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// A signal that is ignored waits all the same while it is blocked, so one that is to stay ignored
// is left out.
sigset_t stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    if (!is_ignored(SIGHUP)) {
        sigaddset(&signals, SIGHUP);
    }
    return signals;
}

void handle(const sigset_t& signals) {
    struct sigaction action {};
    action.sa_sigaction = on_stop_signal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigfillset(&action.sa_mask);
    for (const int signal : {SIGTERM, SIGHUP}) {
        if (sigismember(&signals, signal) == 1) {
            sigaction(signal, &action, nullptr);
        }
    }
}

bool take_waiting(const sigset_t& signals) {
    constexpr timespec no_wait{};
    return sigtimedwait(&signals, nullptr, &no_wait) > 0;
}

}  // namespace

void prepare_signals() {
    for (const int signal : ignored_signals) {
        static_cast<void>(std::signal(signal, SIG_IGN));
    }
    const sigset_t signals = stop_signals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    handle(signals);
}

// A wait that ends because input is there delivers no signal, so those that wait are asked for too.
bool stop_was_signalled() {
    if (take_waiting(stop_signals())) {
        signalled = true;
    }
    return signalled;
}

sigset_t mask_of_wait() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int signal : {SIGTERM, SIGHUP}) {
        sigdelset(&mask, signal);
    }
    return mask;
}

void end_at_second_stop_signal() {
    const sigset_t signals = stop_signals();
    while (take_waiting(signals)) {
        signalled = true;
    }
    stopping = true;
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}
