#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/cli/commands.h"

namespace transmit::cli {

// The one table of commands and options: from it come the reading of a command line, --help, the
// manual page and the completions. Holds the values that a parse gives the options.
class CommandTable {
  public:
    CommandTable();
    CommandTable(const CommandTable&) = delete;
    CommandTable& operator=(const CommandTable&) = delete;

    CLI::App& program() { return program_; }
    const CLI::App& program() const { return program_; }

    // The command of a name, or null.
    const CLI::App* find(std::string_view name) const;
    // True if any command has this option, "-j" or "--jobs"; and if it takes a value.
    bool knows(std::string_view option) const;
    bool takes_value(std::string_view option) const;

    // Runs the command that the last parse found, for a command line as it was typed.
    ExitCode run(std::vector<std::string> command_line);

  private:
    using Action = std::function<ExitCode()>;

    std::string take_storage(const std::string& text);
    bool names_a_path() const;
    ExitCode help();
    bool any_has(std::string_view option, bool with_value) const;
    CLI::App& add(const char* name, const char* description, const char* examples, Action action);
    void add_common_options(CLI::App& command);
    void add_transfers();
    void add_transfer_options(CLI::App& command);
    void add_limits(CLI::App& command);
    void add_path_commands();
    void add_ls();
    void add_rm();
    void add_server_commands();
    CLI::App& add_server_command(const char* name, const char* description, const char* examples,
                                 Action action);
    CLI::Option* add_server(CLI::App& command, const std::string& name,
                            const std::string& description);

    CLI::App program_;
    Action action_;
    Common common_;
    TransferCommand transfer_;
    ListCommand list_;
    RemoveCommand remove_;
    TopCommand top_;
    std::vector<std::string> names_;
    std::string old_name_;
    std::string new_name_;
    std::chrono::seconds duration_{3};
    std::string storage_name_;  // of --storage, if it is no number
    std::string help_name_;
};

}  // namespace transmit::cli
