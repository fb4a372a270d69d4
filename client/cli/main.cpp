#include <clocale>
#include <cstdio>

#include "client/cli/command_line.h"
#include "client/cli/interrupt.h"
#include "client/cli/terminal.h"

int main(int argument_count, char** arguments) {
    using namespace transmit::cli;
    // For the width of characters; one that isn't there leaves the plainest.
    static_cast<void>(std::setlocale(LC_CTYPE, ""));
    catch_signals();
    ExitCode code = run_command_line(argument_count, arguments);
    if (std::fflush(stdout) != 0 && code == ExitCode::done) {
        complain("standard output can't be written");
        code = ExitCode::other_error;
    }
    return static_cast<int>(code);
}
