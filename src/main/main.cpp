#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <locale>
#include <stdexcept>
#include <string>

#include "kestin_base/log.h"
#include "kestin_base/record.h"
#include "kestin_net/net_switch.h"
#include "src/main/alternate_stack.h"
#include "src/main/await_stop.h"
#include "src/main/console.h"
#include "src/main/crash_filter.h"
#include "src/main/process_warnings.h"
#include "src/main/root_directory.h"
#include "src/main/stop_deadline.h"
#include "src/main/stop_signals.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/operation_log.h"

namespace {

using Kestin::Base::LogSwitch;
using Kestin::Base::Record;
using Kestin::Net::NetSwitch;

// What the steps of the start hand on.
struct Start {
    const char* program;  // argv[0]
    std::string root;
    std::string failure;  // why a step failed, in words for a person; empty if they are printed
};

bool start_crash_filter(Start&) {
    install_crash_filter();
    NetSwitch::instance().set_thread_start(use_alternate_stack);
    return true;
}

// What is this large comes straight from the system and goes back to it at once. Left to itself the
// allocator raises the limit to the largest piece that was ever freed, and each of its arenas then
// keeps pieces of that size (mallopt(3)).
bool start_memory(Start&) {
    constexpr int large = 256 * 1024;
    mallopt(M_MMAP_THRESHOLD, large);
    return true;
}

bool start_signals(Start&) {
    prepare_signals();
    return true;
}

bool start_console(Start&) {
    open_closed_streams();
    return true;
}

// Characters are those of the environment; numbers and times keep the classic form. An environment
// that names a locale which isn't installed leaves all of it classic.
bool start_locale(Start&) {
    try {
        std::locale::global(
            std::locale(std::locale::classic(), std::locale(""), std::locale::ctype));
    } catch (const std::runtime_error&) {
        std::locale::global(std::locale::classic());
    }
    return true;
}

bool find_root_directory(Start& start) {
    return get_root_directory(start.program, start.root);
}

bool start_log(Start& start) {
    const bool started = LogSwitch::instance().init((start.root + "cfg/log.ini").c_str());
    start.failure = LogSwitch::instance().failure();
    return started;
}

bool start_record(Start& start) {
    const bool started = Record::instance().init(start.root);
    start.failure = Record::instance().failure();
    return started;
}

bool start_network(Start& start) {
    const bool started = NetSwitch::instance().init();
    start.failure = NetSwitch::instance().failure();
    return started;
}

bool start_service(Start& start) {
    const bool started = NorvaneTransmitService::instance().init(start.root);
    start.failure = NorvaneTransmitService::instance().failure();
    return started;
}

bool warn(Start&) {
    warn_of_process(OperationLog({.file = "src/main"}));
    return true;
}

bool announce(Start&) {
    print_line("tcp transmit service start success, input \"exit\" to stop it");
    return true;
}

// A step of the start; if it fails, what is printed or logged, and the exit code.
struct Step {
    bool (*take)(Start& start);
    const char* failure = "";
    int exit_code = 0;
    enum { console, run_log } reported_on = console;
};

constexpr Step steps[] = {
    {start_signals},
    {start_crash_filter},
    {start_memory},
    {start_console},
    {start_locale},
    {find_root_directory, "get root directory failed", 1},
    {start_log, "log init failed", 2},
    {start_record, "record init failed", 3},
    {warn},
    {start_network, "net switch init failed", 4},
    {start_service, "tcp transmit service init failed", 5, Step::run_log},
    {announce},
};

// A stop waits for callbacks that hang, and then for the disk to take what is stamped and logged.
constexpr std::chrono::seconds longest_stop{20};

}  // namespace

int main(int, char* argv[]) {
    Start start{.program = argv[0], .root = "", .failure = ""};
    for (const Step& step : steps) {
        if (step.take(start)) {
            continue;
        }
        if (step.reported_on == Step::run_log) {
            OperationLog({.file = "src/main"}).error("%s", step.failure);
        } else {
            print_line(step.failure);
        }
        if (!start.failure.empty()) {
            print_failure(start.failure);
        }
        return step.exit_code;
    }

    await_stop();
    end_at_second_stop_signal();
    end_process_after(longest_stop, 0);
    NorvaneTransmitService::instance().exit();
    NetSwitch::instance().exit();
    Record::instance().exit();
    LogSwitch::instance().exit();
    // A callback that still hangs on a disk uses the singletons when it returns.
    if (NetSwitch::instance().running_threads() > 0) {
        std::_Exit(0);
    }
    return 0;
}
