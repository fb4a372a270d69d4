#include "client/cli/command_line.h"
#include "client/cli/interrupt.h"

int main(int argument_count, char** arguments) {
    transmit::cli::catch_interrupt();
    return static_cast<int>(transmit::cli::run_command_line(argument_count, arguments));
}
