#include "client/cli/documents/description.h"

#include <sstream>

#include "client/cli/command_table.h"
#include "client/cli/help_format.h"

namespace transmit::cli {
namespace {

OptionDescription describe(const CLI::Option& option) {
    OptionDescription description{{}, value_name(option), option.get_description()};
    for (const std::string& letter : option.get_snames()) {
        description.names.push_back("-" + letter);
    }
    for (const std::string& name : option.get_lnames()) {
        description.names.push_back("--" + name);
    }
    return description;
}

std::vector<OptionDescription> describe_group(const CLI::App& command, const std::string& group) {
    std::vector<OptionDescription> options;
    for (const CLI::Option* option : command.get_options()) {
        if (option->nonpositional() && option->get_group() == group) {
            options.push_back(describe(*option));
        }
    }
    return options;
}

CommandDescription describe(const CLI::App& command) {
    CommandDescription description{command.get_name(),
                                   command.get_description(),
                                   {},
                                   command.get_footer(),
                                   {},
                                   describe_group(command, own_group)};
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            const std::string name = option->get_option_text();
            description.positionals.push_back({{name}, {}, option->get_description()});
            description.names += (description.names.empty() ? "" : " ") + name;
        }
    }
    return description;
}

}  // namespace

std::vector<std::string> OptionDescription::choices() const {
    std::vector<std::string> words;
    std::istringstream alternatives(value.find('|') == std::string::npos ? "" : value);
    for (std::string word; std::getline(alternatives, word, '|');) {
        words.push_back(word);
    }
    return words;
}

ProgramDescription describe_program() {
    const CommandTable table;
    const CLI::App& program = table.program();
    ProgramDescription description{program.get_description(), program.get_footer(), {}, {}};
    for (const CLI::App* command : program.get_subcommands({})) {
        description.commands.push_back(describe(*command));
        description.common_options = describe_group(*command, common_group);
    }
    return description;
}

}  // namespace transmit::cli
