#pragma once

#include <string>
#include <vector>

// What the table of commands says of the program, as plain text for its documents.
namespace transmit::cli {

struct OptionDescription {
    std::vector<std::string> names;  // "-j", "--jobs"
    std::string value;               // what follows: "N", "all|tail"; empty for a flag
    std::string text;

    // The words of a value that is one of some; empty if it is anything else.
    std::vector<std::string> choices() const;
};

struct CommandDescription {
    std::string name;
    std::string text;
    std::string names;     // "FILE... [TARGET]"
    std::string examples;  // a line each: two spaces, a command line, what it does
    std::vector<OptionDescription> positionals;  // each name is what stands in `names`
    std::vector<OptionDescription> options;      // its own
};

struct ProgramDescription {
    std::string text;
    std::string examples;
    std::vector<CommandDescription> commands;
    std::vector<OptionDescription> common_options;  // of all commands
};

ProgramDescription describe_program();

}  // namespace transmit::cli
