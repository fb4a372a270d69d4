#include "client/cli/documents/completion.h"

#include <functional>
#include <string_view>
#include <vector>

namespace transmit::cli {
namespace {

using Options = std::vector<OptionDescription>;

bool takes_files(const CommandDescription& command) {
    return command.name == "put" || command.name == "get";
}

// A text's first clause: there is no room for more beside a name.
std::string brief(const std::string& text) {
    return text.substr(0, text.find_first_of(".;:"));
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
    std::string text;
    for (const std::string& word : words) {
        text.append(text.empty() ? "" : separator).append(word);
    }
    return text;
}

std::vector<std::string> command_names(const ProgramDescription& program) {
    std::vector<std::string> names;
    for (const CommandDescription& command : program.commands) {
        names.push_back(command.name);
    }
    return names;
}

std::vector<std::string> option_names(const Options& options) {
    std::vector<std::string> names;
    for (const OptionDescription& option : options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

// A word in single quotes for zsh and fish, whose texts hold neither quotes nor backslashes.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char byte : text) {
        result += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    }
    return result + "'";
}

// Every option of the program once, with the values that can be known.
void for_each_option(const ProgramDescription& program,
                     const std::function<void(const OptionDescription&)>& act) {
    for (const OptionDescription& option : program.common_options) {
        act(option);
    }
    for (const CommandDescription& command : program.commands) {
        for (const OptionDescription& option : command.options) {
            act(option);
        }
    }
}

std::string bash_values(const ProgramDescription& program) {
    std::string cases;
    for_each_option(program, [&cases](const OptionDescription& option) {
        if (!option.value.empty()) {
            cases += "        " + joined(option.names, "|") + ") values='" +
                     joined(option.choices(), " ") + "' ;;\n";
        }
    });
    return cases;
}

std::string bash_options(const ProgramDescription& program) {
    std::string cases;
    for (const CommandDescription& command : program.commands) {
        cases += "        " + command.name + ") options+=' " +
                 joined(option_names(command.options), " ") + "' ;;\n";
    }
    return cases;
}

std::string zsh_escaped(const std::string& text) {
    std::string result;
    for (const char byte : text) {
        result += byte == '[' || byte == ']' || byte == ':' ? std::string("\\") + byte
                                                            : std::string(1, byte);
    }
    return result;
}

// Arguments of _arguments, a line each.
std::string zsh_options(const Options& options) {
    std::string lines;
    for (const OptionDescription& option : options) {
        std::string value;
        if (!option.value.empty()) {
            value = ":" + zsh_escaped(option.value) + ":(" + joined(option.choices(), " ") + ")";
        }
        const std::string alternatives = "(" + joined(option.names, " ") + ")";
        const std::string tail = "[" + zsh_escaped(brief(option.text)) + "]" + value;
        for (const std::string& name : option.names) {
            const bool spelled_out = name.starts_with("--") && !option.value.empty();
            std::string spec = alternatives + name;
            spec.append(spelled_out ? "=" : "").append(tail);
            lines.append("        ").append(quoted(spec)).append("\n");
        }
    }
    return lines;
}

std::string fish_option(const OptionDescription& option, const std::string& condition) {
    std::string line = "complete -c transmit" + condition;
    for (const std::string& name : option.names) {
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (!option.value.empty()) {
        line += " -x";
    }
    if (const auto choices = option.choices(); !choices.empty()) {
        line += " -a " + quoted(joined(choices, " "));
    }
    return line + " -d " + quoted(brief(option.text)) + "\n";
}

std::string fish_command(const CommandDescription& command) {
    const std::string condition = " -n '__fish_seen_subcommand_from " + command.name + "'";
    std::string lines = "complete -c transmit -n __fish_use_subcommand -a " + command.name +
                        " -d " + quoted(brief(command.text)) + "\n";
    if (takes_files(command)) {
        lines += "complete -c transmit" + condition + " -F\n";
    }
    for (const OptionDescription& option : command.options) {
        lines += fish_option(option, condition);
    }
    return lines;
}

}  // namespace

std::string bash_completion(const ProgramDescription& program) {
    const std::string commands = joined(command_names(program), "|");
    return R"(# bash completion for transmit
_transmit() {
    local word=${COMP_WORDS[COMP_CWORD]} command= one values=-
    local options=')" +
           joined(option_names(program.common_options), " ") + R"('
    case ${COMP_WORDS[COMP_CWORD-1]} in
)" + bash_values(program) +
           R"(    esac
    if [[ $values != - ]]; then
        compopt +o default
        COMPREPLY=($(compgen -W "$values" -- "$word"))
        return
    fi
    for one in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $one in
        )" +
           commands +
           R"()
            command=$one
            break ;;
        esac
    done
    case $command in
)" + bash_options(program) +
           R"(        *) options+=' --version' ;;
    esac
    if [[ $word == -* ]]; then
        compopt +o default
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    elif [[ -z $command ]]; then
        compopt +o default
        COMPREPLY=($(compgen -W ')" +
           joined(command_names(program), " ") + R"(' -- "$word"))
    elif [[ $command != put && $command != get ]]; then
        compopt +o default
    fi
}
complete -o default -F _transmit transmit
)";
}

std::string zsh_completion(const ProgramDescription& program) {
    std::string commands;
    std::string cases;
    for (const CommandDescription& command : program.commands) {
        commands += "        " + quoted(command.name + ":" + brief(command.text)) + "\n";
        cases += "    " + command.name + ")\n        own=(\n" + zsh_options(command.options) +
                 "        " + (takes_files(command) ? "'*:file:_files'" : "'*:name: '") +
                 "\n        ) ;;\n";
    }
    return R"(#compdef transmit

_transmit() {
    local context state line
    typeset -A opt_args
    local -a common own commands
    common=(
)" + zsh_options(program.common_options) +
           R"(    )
    commands=(
)" + commands +
           R"(    )
    _arguments -C $common '1:command:->command' '*::name:->names'
    case $state in
    command)
        _describe command commands
        return ;;
    names) ;;
    *) return ;;
    esac
    case $words[1] in
)" + cases +
           R"(    esac
    _arguments $common $own
}

_transmit "$@"
)";
}

std::string fish_completion(const ProgramDescription& program) {
    std::string script = "# fish completion for transmit\ncomplete -c transmit -f\n";
    for (const OptionDescription& option : program.common_options) {
        script += fish_option(option, "");
    }
    for (const CommandDescription& command : program.commands) {
        script += fish_command(command);
    }
    return script;
}

}  // namespace transmit::cli
