#include "src/command_line/command_line_parser.h"

#include "fuzz/fuzz_target.h"
#include "src/command_line/http_status.h"

// A command line is understood or refused, and says which; a parser can be used again.
void run(std::string_view input) {
    std::string line;
    make_command_line(input.data(), input.size(), line);
    require(line.find_first_of("&?") == std::string::npos, "every separator is replaced");
    require(line.size() <= input.size(), "a command line is no longer than its text");

    CommandLineParser parser;
    for (int time = 0; time < 2; ++time) {
        const bool understood = parser.parse(line);
        const bool has_run = parser.execute();
        require(!understood || has_run, "what is understood can be run");
        if (understood) {
            require(parser.status() == http_status::ok, "what was run tells its success");
            require(parser.result().starts_with("{\"transmit_"), "a command has its document");
        } else if (!has_run) {
            require(parser.status() == http_status::bad_request, "an unknown command is refused");
        }
    }
}
