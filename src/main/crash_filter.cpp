#include "src/main/crash_filter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <ctime>
#include <string_view>

#include "src/main/alternate_stack.h"
#include "src/main/fixed_text.h"
#include "src/main/local_offsets.h"

namespace {

// The low 8 bits, which are all that a parent sees, of 0xDEAD.
constexpr int crash_status = 0xAD;

constexpr std::array fatal_signals{SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};

// What a handler may not ask the system's library for, told beforehand.
FixedText<PATH_MAX> dump_folder;
LocalOffsets local_offsets;

std::atomic<bool> dumping = false;

void find_dump_folder() {
    std::array<char, PATH_MAX> path;
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    const std::string_view executable(path.data(),
                                      length > 0 ? static_cast<std::size_t>(length) : 0);
    dump_folder.append(executable.substr(0, executable.rfind('/') + 1)).append("dump/");
}

FixedText<PATH_MAX> dump_name(std::time_t now) {
    using namespace std::chrono;
    const sys_seconds local{seconds{now + local_offsets.at(now)}};
    const year_month_day date{floor<days>(local)};
    const hh_mm_ss time{local - floor<days>(local)};
    FixedText<PATH_MAX> name = dump_folder;
    name.append_decimal(static_cast<unsigned>(int{date.year()}), 4)
        .append_decimal(unsigned{date.month()}, 2)
        .append_decimal(unsigned{date.day()}, 2)
        .append_decimal(static_cast<unsigned>(time.hours().count()), 2)
        .append_decimal(static_cast<unsigned>(time.minutes().count()), 2)
        .append_decimal(static_cast<unsigned>(time.seconds().count()), 2)
        .append(".dump");
    return name;
}

// Only the owner reads a dump: it holds whatever clients have sent.
int create_dump() {
    mkdir(dump_folder.c_str(), S_IRWXU);
    const FixedText<PATH_MAX> name = dump_name(std::time(nullptr));
    unlink(name.c_str());
    return open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

void on_fatal_signal(int signal, siginfo_t* information, void* context) {
    crash_filter({information, static_cast<const ucontext_t*>(context)});
    static_cast<void>(std::signal(signal, SIG_DFL));
    static_cast<void>(raise(signal));  // blocked here, delivered on return
}

}  // namespace

void install_crash_filter() {
    find_dump_folder();
    local_offsets.load(std::time(nullptr));
    use_alternate_stack();
    struct sigaction action {};
    action.sa_sigaction = on_fatal_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    // A fault inside the handler finds its signal blocked, and the system ends the process.
    sigfillset(&action.sa_mask);
    for (const int signal : fatal_signals) {
        sigaction(signal, &action, nullptr);
    }
}

int crash_filter(const Fault& fault) {
    while (dumping.exchange(true)) {
        pause();
    }
    const int file = create_dump();
    if (file < 0) {
        return 1;
    }
    write_core_dump(file, fault);
    close(file);
    _exit(crash_status);
}
