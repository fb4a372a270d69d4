#include "client/cli/interrupt.h"

#include <atomic>
#include <csignal>

namespace transmit::cli {
namespace {

std::atomic<int> ending = 0;
std::atomic<bool> report_wish = false;
using Clock = std::chrono::steady_clock;
constexpr Clock::time_point no_limit = Clock::time_point::max();
// Set before threads start.
Clock::time_point deadline = no_limit;
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

void set_time_limit(std::chrono::seconds limit) {
    deadline = limit.count() == 0 ? no_limit : Clock::now() + limit;
}

int ending_signal() {
    return ending;
}

bool interrupted() {
    return ending != 0 || (deadline != no_limit && Clock::now() >= deadline);
}

bool take_report_wish() {
    return report_wish.exchange(false);
}

}  // namespace transmit::cli
