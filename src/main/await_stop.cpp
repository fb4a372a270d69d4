#include "src/main/await_stop.h"

#include <poll.h>

#include <ctime>

#include "src/main/console_input.h"
#include "src/main/stop_signals.h"

namespace {

// How long an input that gave nothing is left alone; it would be reported readable all the time.
constexpr timespec input_rest{.tv_sec = 1, .tv_nsec = 0};

}  // namespace

void await_stop() {
    const sigset_t mask = mask_of_wait();
    ConsoleInput input;
    auto result = ConsoleInput::Result::some;
    while (result != ConsoleInput::Result::exit && !stop_was_signalled()) {
        const bool rests = result == ConsoleInput::Result::nothing;
        const bool looks_again = rests && input.may_go_on();
        pollfd console{input.descriptor(), POLLIN, 0};
        if (ppoll(&console, rests ? 0 : 1, looks_again ? &input_rest : nullptr, &mask) > 0) {
            result = input.read();
        } else if (looks_again) {
            result = ConsoleInput::Result::some;
        }
    }
}
