#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace transmit::cli {

// The group of the options that every command has.
inline constexpr auto common_group = "Options of all commands";
inline constexpr auto own_group = "Options";

// Help that begins with examples, which it takes from an App's footer; the text of a positional is
// its option_text. The program's own help tells the options of all commands and the exit codes.
class HelpFormat : public CLI::Formatter {
  public:
    HelpFormat();

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_option_opts(const CLI::Option* option) const override;

  private:
    std::string make_options(const CLI::App& command, const std::string& group) const;
};

// The value that an option takes, as help shows it: "SECONDS", or nothing for a flag.
std::string value_name(const CLI::Option& option);

}  // namespace transmit::cli
