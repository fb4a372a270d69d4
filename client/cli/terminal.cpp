#include "client/cli/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "client/cli/text.h"
#include "client/status_text.h"

namespace transmit::cli {
namespace {

std::string_view next_step(const Error& error, Resumes resumes) {
    switch (error.kind) {
        case ErrorKind::no_connection:
            return "See that the server runs and that its name and port are right.";
        case ErrorKind::connection_lost:
        case ErrorKind::time_limit:
        case ErrorKind::cancelled:
            return resumes == Resumes::yes ? "The same command goes on where this one stopped."
                                           : "";
        case ErrorKind::refused:
            return status_text(error.status).next_step;
        case ErrorKind::bad_answer:
            return "See that --server names the transmit port.";
        case ErrorKind::file_changed:
            return "Try again when nobody writes to it.";
        default:
            return "";
    }
}

std::string_view environment(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

std::size_t terminal_width() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool can_redraw() {
    const auto kind = environment("TERM");
    return isatty(STDERR_FILENO) && !kind.empty() && kind != "dumb";
}

bool can_colour() {
    return can_redraw() && environment("NO_COLOR").empty();
}

bool can_ask() {
    return isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
}

bool asked(const std::string& question) {
    std::cerr << question + " [y/N] ";
    std::string answer;
    std::getline(std::cin, answer);
    return answer.starts_with('y') || answer.starts_with('Y');
}

std::string complaint(std::string_view subject, const Error& error, Resumes resumes) {
    const bool named = subject.empty() || error.text.starts_with(subject);
    std::string text = (named ? "" : std::string(subject) + ": ") + error.text;
    if (const auto step = next_step(error, resumes); !step.empty()) {
        text.append(". ").append(step);
    }
    return "transmit: " + shown(text);
}

void complain(std::string_view subject, const Error& error) {
    std::cerr << complaint(subject, error) + "\n";
}

void complain(std::string_view text) {
    std::cerr << "transmit: " + shown(text) + "\n";
}

}  // namespace transmit::cli
