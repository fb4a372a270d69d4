#include "src/main/core_dump.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <string_view>

#include "src/main/core_file.h"
#include "src/main/fault_registers.h"
#include "src/main/fixed_text.h"
#include "src/main/memory_map.h"
#include "src/main/stopped_threads.h"

namespace {

// The handler's stack is small, and these stand in memory that nothing else has broken.
constinit MemoryMap memory_map;
constinit StoppedThreads stopped_threads;
constinit std::array<char, 4096> auxiliary_vector{};

using ProcPath = FixedText<64>;

ProcPath proc_path(pid_t process, std::string_view name) {
    ProcPath path;
    path.append("/proc/").append_decimal(static_cast<unsigned long>(process)).append(name);
    return path;
}

std::string_view read_proc(pid_t process, std::string_view name, std::span<char> buffer) {
    const int file = open(proc_path(process, name).c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = read(file, buffer.data(), buffer.size());
    close(file);
    return {buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0};
}

elf_prpsinfo identity_of(pid_t process) {
    elf_prpsinfo identity{};
    identity.pr_pid = process;
    identity.pr_uid = getuid();
    identity.pr_gid = getgid();
    const std::string_view name =
        read_proc(process, "/comm", {identity.pr_fname, sizeof identity.pr_fname - 1});
    std::replace(identity.pr_fname, identity.pr_fname + name.size(), '\n', '\0');
    const std::string_view arguments =
        read_proc(process, "/cmdline", {identity.pr_psargs, sizeof identity.pr_psargs - 1});
    std::replace(identity.pr_psargs, identity.pr_psargs + arguments.size(), '\0', ' ');
    return identity;
}

// Writes the threads given, the one that faulted first, and the memory of the process.
bool write_process(int file, pid_t process, std::span<ThreadState> threads, const Fault& fault) {
    ThreadState& faulted = threads.front();
    restore_fault_registers(*fault.context, faulted);
    faulted.status.pr_cursig = static_cast<short>(fault.information->si_signo);
    faulted.status.pr_info.si_signo = fault.information->si_signo;

    const int memory = open(proc_path(process, "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    return memory >= 0 && memory_map.load(proc_path(process, "/smaps").c_str()) &&
           write_core_file(file,
                           {threads, *fault.information, identity_of(process),
                            read_proc(process, "/auxv", auxiliary_vector), memory_map, memory});
}

// In a child of the process that crashed. Its end sets the threads free again.
[[noreturn]] void write_stopped_process(int file, pid_t process, pid_t thread, const Fault& fault) {
    const bool written = stopped_threads.stop(process, thread) &&
                         write_process(file, process, stopped_threads.states(), fault);
    _exit(written ? 0 : 1);
}

// In the handler itself, while the other threads run on.
void write_own_process(int file, const Fault& fault) {
    static ThreadState own;
    own.status.pr_pid = gettid();
    read_own_registers(own);
    write_process(file, getpid(), {&own, 1}, fault);
}

bool succeeded(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, __WALL) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

void write_core_dump(int file, const Fault& fault) {
    const pid_t process = getpid();
    const pid_t thread = gettid();
    // Where only descendants may be traced, a parent has to allow it (Yama).
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    // As fork(2) does it, but without the handlers that the library calls around it and without a
    // signal at the child's end.
    const auto child = static_cast<pid_t>(syscall(SYS_clone, 0, nullptr, nullptr, nullptr, 0));
    if (child == 0) {
        write_stopped_process(file, process, thread, fault);
    }
    if (child < 0 || !succeeded(child)) {
        write_own_process(file, fault);
    }
}
