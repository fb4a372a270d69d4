#include "bench/supervisor.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "bench/measure/process_tree.h"

namespace bench {
namespace {

sigset_t awaited_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

pid_t start(const std::function<int()>& work, const sigset_t& blocked) {
    const pid_t worker = fork();
    if (worker != 0) {
        return worker;
    }
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    // A group of its own, so that a terminal's interrupt reaches the supervisor alone.
    setpgid(0, 0);
    const int result = work();
    const bool is_told = std::fflush(stdout) == 0;
    _exit(is_told ? result : 1);
}

// The worker's exit code, or that of a shell for what ended the wait.
int await(pid_t worker, const sigset_t& signals) {
    while (true) {
        int signal = 0;
        sigwait(&signals, &signal);
        if (signal != SIGCHLD) {
            return 128 + signal;
        }
        int status = 0;
        pid_t ended = 0;
        while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
            if (ended == worker) {
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
        }
    }
}

// Who loses its parent becomes this process's child, so that the last generation ends too.
void end_children() {
    for (auto children = children_of(getpid()); !children.empty();
         children = children_of(getpid())) {
        for (const pid_t child : children) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }
}

}  // namespace

int supervise(const std::function<int()>& work) {
    const sigset_t signals = awaited_signals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t worker = start(work, signals);
    const int result = await(worker, signals);
    end_children();
    return result;
}

}  // namespace bench
