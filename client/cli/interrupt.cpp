#include "client/cli/interrupt.h"

#include <atomic>
#include <csignal>

namespace transmit::cli {
namespace {

std::atomic<int> ending = 0;
std::atomic<bool> report_wish = false;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "else a signal's handler couldn't set them");

void note_ending(int signal) {
    int none = 0;
    ending.compare_exchange_strong(none, signal);
}

void note_report_wish(int /*signal*/) {
    report_wish = true;
}

void handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

}  // namespace

// The ending ones without SA_RESTART, so that a wait under way ends.
void catch_signals() {
    handle(SIGINT, &note_ending, static_cast<int>(SA_RESETHAND));
    handle(SIGTERM, &note_ending, static_cast<int>(SA_RESETHAND));
    handle(SIGUSR1, &note_report_wish, SA_RESTART);
}

int ending_signal() {
    return ending;
}

bool interrupted() {
    return ending != 0;
}

bool take_report_wish() {
    return report_wish.exchange(false);
}

}  // namespace transmit::cli
