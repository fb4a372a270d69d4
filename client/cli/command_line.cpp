#include "client/cli/command_line.h"

#include <algorithm>
#include <string>
#include <vector>

#include "client/cli/arguments.h"
#include "client/cli/command_table.h"
#include "client/cli/server.h"
#include "client/cli/settings_file.h"

namespace transmit::cli {
namespace {

// Options may stand before the command too: they are read as if they stood behind it. A word that
// is no command is an error.
Result<void> put_command_first(const CommandTable& table, std::vector<std::string>& arguments) {
    const auto place = first_word(
        arguments, [&table](std::string_view option) { return table.takes_value(option); });
    if (!place) {
        return {};
    }
    const auto word = arguments.begin() + static_cast<std::ptrdiff_t>(*place);
    if (!table.find(*word)) {
        return Error{ErrorKind::invalid_request, 0,
                     *word + " is no command; \"transmit --help\" lists them"};
    }
    std::rotate(arguments.begin(), word, word + 1);
    return {};
}

// The settings become options between the command and what was typed, of which the last one wins.
// Those that only other commands have are passed over.
Result<void> insert_settings(const CommandTable& table, const std::string& path,
                             std::vector<std::string>& arguments) {
    const CLI::App* const command = arguments.empty() ? nullptr : table.find(arguments.front());
    const auto settings = read_settings(path);
    if (!settings) {
        return settings.error();
    }
    std::vector<std::string> options;
    for (const Setting& setting : *settings) {
        const std::string option = "--" + setting.name;
        if (!table.knows(option)) {
            return Error{ErrorKind::invalid_request, 0,
                         path + ": " + setting.name + " is the name of no option"};
        }
        if (command && command->get_option_no_throw(option)) {
            options.push_back(option + "=" + setting.value);
        }
    }
    arguments.insert(arguments.begin() + (command ? 1 : 0), options.begin(), options.end());
    return {};
}

// What is wrong, in words of the program's own where the parser's would say little.
std::string reason(const CLI::App& program, const CLI::ParseError& error) {
    const auto command = program.get_subcommands();
    if (command.empty()) {
        return "which command? \"transmit --help\" lists them";
    }
    std::string text = error.what();
    if (dynamic_cast<const CLI::RequiredError*>(&error)) {
        text = "something is missing";
    }
    return text + "; \"transmit " + command.front()->get_name() + " --help\" tells more";
}

// What a command line that can't be read says of the form of its errors.
Common as_typed(const std::vector<std::string>& typed) {
    Common common;
    common.json = std::ranges::find(typed, "--json") != typed.end();
    return common;
}

ExitCode parse_and_run(CommandTable& table, std::vector<std::string> arguments,
                       std::vector<std::string> typed) {
    std::ranges::transform(arguments, arguments.begin(), &marked);
    std::reverse(arguments.begin(), arguments.end());
    try {
        table.program().parse(std::move(arguments));
    } catch (const CLI::Success& wish) {
        table.program().exit(wish);
        return ExitCode::done;
    } catch (const CLI::ParseError& error) {
        return report_usage(as_typed(typed),
                            {ErrorKind::invalid_request, 0, reason(table.program(), error)});
    }
    return table.run(std::move(typed));
}

}  // namespace

ExitCode run_command_line(int argument_count, const char* const* arguments) {
    CommandTable table;
    const std::vector<std::string> typed(arguments, arguments + argument_count);
    std::vector<std::string> words(typed.begin() + std::min<int>(1, argument_count), typed.end());
    auto prepared = put_command_first(table, words);
    if (prepared) {
        prepared = insert_settings(table, settings_path(), words);
    }
    if (!prepared) {
        return report_usage(as_typed(typed), prepared.error());
    }
    return parse_and_run(table, std::move(words), typed);
}

}  // namespace transmit::cli
