#include "src/main/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <string_view>

namespace {

constexpr std::string_view exit_word = "exit";
constexpr int no_descriptor = -1;

// Cuts the input into lines, however its bytes arrive, and keeps of a line only how much of the
// exit word it is so far.
class ExitLine {
  public:
    // True when the byte completes a line that is the exit word.
    bool ends_with(char byte) {
        if (byte == '\n') {
            const bool found = is_complete();
            matched_ = 0;
            differs_ = false;
            return found;
        }
        differs_ = differs_ || is_complete() || byte != exit_word[matched_];
        matched_ += differs_ ? 0 : 1;
        return false;
    }

    // Whether the line, as far as it came, is the exit word.
    bool is_complete() const { return !differs_ && matched_ == exit_word.size(); }

  private:
    std::size_t matched_ = 0;
    bool differs_ = false;
};

enum class Input { open, ended, exit };

Input read_console(ExitLine& line) {
    std::array<char, 4096> bytes;
    const ssize_t got = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
        return Input::open;
    }
    if (got <= 0) {
        return line.is_complete() ? Input::exit : Input::ended;
    }
    for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(got))) {
        if (line.ends_with(byte)) {
            return Input::exit;
        }
    }
    return Input::open;
}

sigset_t termination() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void open_closed_streams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= STDIN_FILENO && descriptor <= STDERR_FILENO);
    close(descriptor);
}

}  // namespace

void prepare_console() {
    open_closed_streams();
    const sigset_t signals = termination();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void print_line(const char* text) {
    std::cout << text << std::endl;
}

void await_stop() {
    const sigset_t signals = termination();
    std::array<pollfd, 2> sources{
        {{STDIN_FILENO, POLLIN, 0}, {signalfd(-1, &signals, SFD_CLOEXEC), POLLIN, 0}}};
    auto& [console, stop_signal] = sources;
    ExitLine line;
    Input input = Input::open;
    while (input != Input::exit && stop_signal.revents == 0) {
        if (input == Input::ended) {
            console.fd = no_descriptor;  // poll(2) passes over it
        }
        poll(sources.data(), sources.size(), -1);
        if (console.revents != 0) {
            input = read_console(line);
        }
    }
    close(stop_signal.fd);
}
