#include "src/main/console_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace {

constexpr std::string_view exit_word = "exit";

bool is_fifo(int descriptor) {
    struct stat facts {};
    return fstat(descriptor, &facts) == 0 && S_ISFIFO(facts.st_mode);
}

// Opens the terminal once more, so that a read does not wait when another program of the terminal
// took the line first. O_NONBLOCK on the standard input itself would reach all who share it, the
// shell for one. A terminal that cannot be opened again is read as it is.
int open_without_waiting() {
    const int again = open("/proc/self/fd/0", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    return again >= 0 ? again : STDIN_FILENO;
}

}  // namespace

ConsoleInput::ConsoleInput()
    : descriptor_(isatty(STDIN_FILENO) == 1 ? open_without_waiting() : STDIN_FILENO),
      may_go_on_(isatty(STDIN_FILENO) == 1 || is_fifo(STDIN_FILENO)) {
}

ConsoleInput::~ConsoleInput() {
    if (descriptor_ != STDIN_FILENO) {
        close(descriptor_);
    }
}

ConsoleInput::Result ConsoleInput::read() {
    std::array<char, 4096> bytes;
    const ssize_t got = ::read(descriptor_, bytes.data(), bytes.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
        return Result::some;
    }
    if (got <= 0) {
        const bool is_exit = line_.is_exit();
        line_ = {};
        return is_exit ? Result::exit : Result::nothing;
    }
    for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(got))) {
        if (byte != '\n') {
            line_.add(byte);
        } else if (line_.is_exit()) {
            return Result::exit;
        } else {
            line_ = {};
        }
    }
    return Result::some;
}

bool ConsoleInput::Line::is_exit() const {
    return !differs && matched == exit_word.size();
}

void ConsoleInput::Line::add(char byte) {
    differs = differs || is_exit() || byte != exit_word[matched];
    matched += differs ? 0 : 1;
}
