#include "client/cli/documents/manual_page.h"

#include <functional>
#include <map>
#include <sstream>

#include "client/cli/exit_code.h"

namespace transmit::cli {
namespace {

// Text that roff shows as it is: neither a request at a line's start nor an escape, and hyphens
// that can be copied.
std::string roff(std::string_view text) {
    std::string result;
    for (const char byte : text) {
        if (byte == '\\') {
            result += "\\e";
        } else if (byte == '-') {
            result += "\\-";
        } else if ((byte == '.' || byte == '\'') && (result.empty() || result.back() == '\n')) {
            result += std::string("\\&") + byte;
        } else {
            result += byte;
        }
    }
    return result;
}

std::string bold(std::string_view text) {
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + roff(text) + "\\fR";
}

std::string tagged(const std::string& tag, std::string_view text) {
    return ".TP\n" + tag + "\n" + roff(text) + ".\n";
}

std::string verbatim(std::string_view text) {
    return text.empty() ? std::string() : ".PP\n.nf\n" + roff(text) + "\n.fi\n";
}

std::string option_entry(const OptionDescription& option) {
    std::string tag;
    for (const std::string& name : option.names) {
        tag += (tag.empty() ? "" : ", ") + bold(name);
    }
    return tagged(option.value.empty() ? tag : tag + " " + italic(option.value), option.text);
}

std::string option_entries(const std::vector<OptionDescription>& options) {
    std::string entries;
    for (const OptionDescription& option : options) {
        entries += option_entry(option);
    }
    return entries;
}

std::string command_entry(const CommandDescription& command) {
    std::string entry = ".SS " + command.name + "\n" + bold("transmit " + command.name) + " [" +
                        italic("option") + "]... " + italic(command.names) + "\n.PP\n" +
                        roff(command.text) + ".\n";
    for (const OptionDescription& positional : command.positionals) {
        entry += tagged(italic(positional.names.front()), positional.text);
    }
    return entry + option_entries(command.options) + verbatim(command.examples);
}

std::string command_entries(const ProgramDescription& program) {
    std::string entries;
    for (const CommandDescription& command : program.commands) {
        entries += command_entry(command);
    }
    return entries;
}

std::string exit_status() {
    std::string entries;
    for (const ExitCodeText& one : exit_code_texts()) {
        entries +=
            ".TP\n" + std::to_string(static_cast<int>(one.code)) + "\n" + roff(one.full) + "\n";
    }
    return entries;
}

}  // namespace

std::string manual_page(std::string_view frame, const ProgramDescription& program) {
    const std::map<std::string, std::function<std::string()>> parts{
        {"@EXAMPLES@",
         [&] {
             return verbatim(program.examples);
         }},
        {"@COMMANDS@",
         [&] {
             return command_entries(program);
         }},
        {"@OPTIONS@",
         [&] {
             return option_entries(program.common_options);
         }},
        {"@EXIT_STATUS@",
         [] {
             return exit_status();
         }},
    };
    std::string page;
    std::istringstream lines{std::string(frame)};
    for (std::string line; std::getline(lines, line);) {
        const auto part = parts.find(line);
        page += part == parts.end() ? line + "\n" : part->second();
    }
    return page;
}

}  // namespace transmit::cli
