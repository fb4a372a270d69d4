#include "src/main/stopped_threads.h"

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>

#include "src/main/fixed_text.h"

namespace {

// readdir takes memory; the system call doesn't.
template <typename Visit>
void for_each_entry(int folder, Visit visit) {
    alignas(dirent64) std::array<char, 4096> entries;
    long got = 0;
    while ((got = syscall(SYS_getdents64, folder, entries.data(), entries.size())) > 0) {
        for (long at = 0; at < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries.data() + at);
            visit(std::string_view(entry->d_name));
            at += entry->d_reclen;
        }
    }
}

pid_t thread_number(std::string_view name) {
    pid_t thread = 0;
    std::from_chars(name.data(), name.data() + name.size(), thread);
    return thread;  // 0 for "." and ".."
}

template <typename Registers>
bool read_registers(pid_t thread, unsigned set, Registers& registers) {
    iovec place{&registers, sizeof registers};
    return ptrace(PTRACE_GETREGSET, thread, set, &place) == 0;
}

bool read_state(pid_t thread, ThreadState& state) {
    state = {};
    state.status.pr_pid = thread;
    state.status.pr_fpvalid = read_registers(thread, NT_PRFPREG, state.floating_point) ? 1 : 0;
    return read_registers(thread, NT_PRSTATUS, state.status.pr_reg);
}

}  // namespace

bool StoppedThreads::stop(pid_t process, pid_t first) {
    if (!seize(first)) {
        return false;
    }
    await_stop(first);
    // A thread may have started others before it stood still.
    while (seize_new(process)) {
    }
    read_states();
    return count_ > 0 && states_.front().status.pr_pid == first;
}

bool StoppedThreads::seize_new(pid_t process) {
    FixedText<64> path;
    path.append("/proc/").append_decimal(static_cast<unsigned long>(process)).append("/task");
    const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::size_t known = seized_count_;
    for_each_entry(folder, [this](std::string_view name) {
        const pid_t thread = thread_number(name);
        if (thread != 0) {
            seize(thread);
        }
    });
    close(folder);
    for (std::size_t i = known; i < seized_count_; ++i) {
        await_stop(seized_[i]);
    }
    return seized_count_ > known;
}

bool StoppedThreads::seize(pid_t thread) {
    const auto end = seized_.begin() + static_cast<std::ptrdiff_t>(seized_count_);
    if (end == seized_.end() || std::find(seized_.begin(), end, thread) != end ||
        ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0) {
        return false;
    }
    ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
    seized_[seized_count_++] = thread;
    return true;
}

void StoppedThreads::await_stop(pid_t thread) {
    while (waitpid(thread, nullptr, __WALL | WNOHANG) == 0 &&
           waited_milliseconds_ < max_wait_milliseconds) {
        const timespec millisecond{0, 1'000'000};
        nanosleep(&millisecond, nullptr);
        ++waited_milliseconds_;
    }
}

void StoppedThreads::read_states() {
    for (std::size_t i = 0; i < seized_count_; ++i) {
        if (read_state(seized_[i], states_[count_])) {
            ++count_;
        }
    }
}
