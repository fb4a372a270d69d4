#include <malloc.h>

#include <cstdlib>
#include <locale>
#include <stdexcept>
#include <string>

#include "kestin_base/log.h"
#include "kestin_base/record.h"
#include "kestin_net/net_switch.h"
#include "src/main/alternate_stack.h"
#include "src/main/console.h"
#include "src/main/crash_filter.h"
#include "src/main/root_directory.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/operation_log.h"

namespace {

using Kestin::Base::LogSwitch;
using Kestin::Base::Record;
using Kestin::Net::NetSwitch;

bool start_crash_filter(const char*, std::string&) {
    install_crash_filter();
    NetSwitch::instance().set_thread_start(use_alternate_stack);
    return true;
}

// What is this large comes straight from the system and goes back to it at once. Left to itself the
// allocator raises the limit to the largest piece that was ever freed, and each of its arenas then
// keeps pieces of that size (mallopt(3)).
bool start_memory(const char*, std::string&) {
    constexpr int large = 256 * 1024;
    mallopt(M_MMAP_THRESHOLD, large);
    return true;
}

bool start_console(const char*, std::string&) {
    prepare_console();
    return true;
}

// Characters are those of the environment; numbers and times keep the classic form. An environment
// that names a locale which isn't installed leaves all of it classic.
bool start_locale(const char*, std::string&) {
    try {
        std::locale::global(
            std::locale(std::locale::classic(), std::locale(""), std::locale::ctype));
    } catch (const std::runtime_error&) {
        std::locale::global(std::locale::classic());
    }
    return true;
}

bool start_log(const char*, std::string& root) {
    return LogSwitch::instance().init((root + "cfg/log.ini").c_str());
}

bool start_record(const char*, std::string& root) {
    return Record::instance().init(root);
}

bool start_network(const char*, std::string&) {
    return NetSwitch::instance().init();
}

bool start_service(const char*, std::string& root) {
    return NorvaneTransmitService::instance().init(root);
}

bool announce(const char*, std::string&) {
    print_line("tcp transmit service start success, input \"exit\" to stop it");
    return true;
}

// The start of the process, in order; what is said, where, and the exit code if a step fails.
struct Step {
    bool (*start)(const char* path, std::string& root);
    const char* failure = "";
    int exit_code = 0;
    enum { console, run_log } reported_on = console;
};

constexpr Step steps[] = {
    {start_crash_filter},
    {start_memory},
    {start_console},
    {start_locale},
    {get_root_directory, "get root directory failed", 1},
    {start_log, "log init failed", 2},
    {start_record, "record init failed", 3},
    {start_network, "net switch init failed", 4},
    {start_service, "tcp transmit service init failed", 5, Step::run_log},
    {announce},
};

}  // namespace

int main(int, char* argv[]) {
    std::string root;
    for (const Step& step : steps) {
        if (step.start(argv[0], root)) {
            continue;
        }
        if (step.reported_on == Step::run_log) {
            OperationLog({.file = "src/main"}).error("%s", step.failure);
        } else {
            print_line(step.failure);
        }
        return step.exit_code;
    }

    await_stop();
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
