#include "client/cli/interrupt.h"

#include <csignal>

namespace transmit::cli {
namespace {

volatile std::sig_atomic_t mark = 0;

}  // namespace

void catch_interrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) {
        mark = 1;
    };
    // Without SA_RESTART, so that a wait under way ends; with SA_RESETHAND, so that a second one
    // ends the process.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

bool interrupted() {
    return mark != 0;
}

}  // namespace transmit::cli
