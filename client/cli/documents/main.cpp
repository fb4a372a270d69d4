#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "client/cli/documents/completion.h"
#include "client/cli/documents/manual_page.h"

// Writes what is made from the table of commands: the manual page and the completions, below
// `share`.
int main(int argument_count, char** arguments) {
    using namespace transmit::cli;
    if (argument_count != 3) {
        std::cerr << "usage: transmit_documents FRAME-OF-MANUAL-PAGE FOLDER\n";
        return 2;
    }
    std::ifstream frame(arguments[1]);
    const std::string text{std::istreambuf_iterator<char>(frame), {}};
    const std::string folder = std::string(arguments[2]) + "/";
    const ProgramDescription program = describe_program();
    const auto write = [&folder](const char* name, const std::string& content) {
        return static_cast<bool>(std::ofstream(folder + name) << content << std::flush);
    };
    const bool written = frame && write("transmit.1", manual_page(text, program)) &&
                         write("transmit.bash", bash_completion(program)) &&
                         write("_transmit", zsh_completion(program)) &&
                         write("transmit.fish", fish_completion(program));
    return written ? 0 : 1;
}
