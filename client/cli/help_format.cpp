#include "client/cli/help_format.h"

#include <sstream>

#include "client/cli/exit_code.h"

namespace transmit::cli {
namespace {

constexpr std::size_t description_column = 30;
constexpr std::size_t text_width = 80;

// Lines of at most `text_width` columns, those behind the first one indented.
std::string wrapped(const std::string& head, const std::string& text, std::size_t indent) {
    std::string result = head;
    std::size_t used = head.size();
    if (used > indent) {
        result += "\n" + std::string(indent, ' ');
    } else {
        result += std::string(indent - used, ' ');
    }
    used = indent;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (used > indent && used + 1 + word.size() > text_width) {
            result += "\n" + std::string(indent, ' ');
            used = indent;
        }
        result += (used > indent ? " " : "") + word;
        used += word.size() + (used > indent ? 1 : 0);
    }
    return result + "\n";
}

std::string exit_codes() {
    constexpr std::string_view head = "Exit codes: ";
    std::string text;
    for (const ExitCodeText& one : exit_code_texts()) {
        text += (text.empty() ? "" : ", ") + std::to_string(static_cast<int>(one.code)) + " " +
                std::string(one.brief);
    }
    return "\n" + wrapped(std::string(head), text + ".", head.size());
}

}  // namespace

HelpFormat::HelpFormat() {
    column_width(description_column);
    label("Positionals", "Names");
    label("Subcommands", "Commands");
}

std::string HelpFormat::make_help(const CLI::App* app, std::string name,
                                  CLI::AppFormatMode mode) const {
    std::string help;
    if (!app->get_footer().empty()) {
        help += "Examples:\n" + app->get_footer() + "\n\n";
    }
    help += make_description(app) + "\n" + make_usage(app, std::move(name)) + make_positionals(app);
    if (app->get_parent()) {
        return help + make_options(*app, own_group) + make_options(*app, common_group);
    }
    const CLI::App& any_command = *app->get_subcommands({}).front();
    return help + make_subcommands(app, mode) + make_options(any_command, common_group) +
           exit_codes();
}

std::string HelpFormat::make_usage(const CLI::App* app, std::string name) const {
    std::string usage = "Usage: " + name;
    if (!app->get_parent()) {
        return usage + " COMMAND [OPTION]... [NAME]...\n";
    }
    usage += " [OPTION]...";
    for (const CLI::Option* option : app->get_options()) {
        usage += option->get_positional() ? " " + option->get_option_text() : "";
    }
    return usage + "\n";
}

std::string HelpFormat::make_option(const CLI::Option* option, bool is_positional) const {
    const std::string head = is_positional
                                 ? option->get_option_text()
                                 : option->get_name(false, true) + make_option_opts(option);
    return wrapped("  " + head, option->get_description(), get_column_width());
}

std::string HelpFormat::make_option_opts(const CLI::Option* option) const {
    const std::string value = value_name(*option);
    return value.empty() ? value : " " + value;
}

std::string HelpFormat::make_options(const CLI::App& command, const std::string& group) const {
    const auto options = command.get_options([&group](const CLI::Option* option) {
        return option->get_group() == group && option->nonpositional();
    });
    return options.empty() ? std::string() : make_group(group, false, options);
}

std::string value_name(const CLI::Option& option) {
    return option.get_items_expected_max() == 0 ? std::string() : option.get_type_name();
}

}  // namespace transmit::cli
