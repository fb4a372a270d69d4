#include "client/cli/command_table.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <map>

#include "client/cli/arguments.h"
#include "client/cli/help_format.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"

namespace transmit::cli {
namespace {

constexpr auto program_examples =
    R"(  transmit put report.pdf /docs/               send a file into a folder of the server
  transmit get -r files.example.org/2/photos   fetch a folder with all it holds
  transmit ls -l /docs                         see what is there)";

constexpr auto program_description =
    R"(Sends files to a transmit server and fetches them from it. Transfers that break
off go on by themselves; after an interruption the same command goes on where it
stopped. A name on the server is /PATH, in the storage that --server and --storage
or the settings file tell, or HOST[:PORT]/STORAGE/PATH.)";

constexpr auto put_examples =
    R"(  transmit put report.pdf /docs/               into a folder
  transmit put report.pdf /docs/may.pdf        under another name
  transmit put -r photos files.example.org/2/  a folder, to another server's storage 2
  pg_dump app | transmit put - /backup/app.sql what a program prints)";

constexpr auto get_examples =
    R"(  transmit get /docs/report.pdf                into the working folder
  transmit get /a.jpg /b.jpg pictures/         into another one
  transmit get -r /photos copy                 a folder, under another name
  transmit get /backup/app.sql - | psql app    to a program)";

constexpr auto ls_examples =
    R"(  transmit ls -l /docs                         with sizes and times
  transmit ls -R --json / | jq .path           everything, for programs)";

constexpr auto rm_examples =
    R"(  transmit rm /docs/old.pdf                    asks first
  transmit rm -ry /photos                      a folder with all it holds, unasked)";

constexpr auto mv_examples =
    R"(  transmit mv /docs/a.pdf /docs/b.pdf          rename
  transmit mv /docs/a.pdf /archive/            move into a folder)";

constexpr auto top_examples =
    R"(  transmit top files.example.org               until Ctrl-C
  transmit top --once --json                   the same for programs, once)";

std::string target_rule() {
    return "a folder if it ends in /, exists as one, or takes several files; else the name that "
           "the file gets";
}

// Whole seconds for an option.
CLI::Option* add_seconds(CLI::App& command, const std::string& name, std::chrono::seconds& seconds,
                         const std::string& description) {
    return command
        .add_option_function<std::uint32_t>(
            name, [&seconds](std::uint32_t value) { seconds = std::chrono::seconds(value); },
            description)
        ->type_name("SECONDS");
}

CLI::Validator within(int least, int most) {
    return CLI::Range(least, most).description("");
}

// A text that `take` turns into a value; it gives an error's text, or nothing.
CLI::Option* add_text(CLI::App& command, const std::string& name, const std::string& description,
                      std::function<std::string(const std::string&)> take) {
    return command.add_option_function<std::string>(
        name,
        [name, take = std::move(take)](const std::string& text) {
            if (const std::string error = take(unmarked(text)); !error.empty()) {
                throw CLI::ValidationError(name, error);
            }
        },
        description);
}

// One of some words.
template <typename Value>
CLI::Option* add_choice(CLI::App& command, const std::string& name, const std::string& description,
                        Value& value, const std::map<std::string, Value>& choices) {
    std::string words;
    for (const auto& [word, unused] : choices) {
        words += (words.empty() ? "" : "|") + word;
    }
    return add_text(command, name, description,
                    [&value, choices, words](const std::string& text) {
                        const auto found = choices.find(text);
                        if (found == choices.end()) {
                            return text + " is none of " + words;
                        }
                        value = found->second;
                        return std::string();
                    })
        ->type_name(words);
}

CLI::Option* add_names(CLI::App& command, std::vector<std::string>& names, const char* text,
                       const std::string& description) {
    return command
        .add_option_function<std::vector<std::string>>(
            "names",
            [&names](const std::vector<std::string>& texts) {
                names.clear();
                for (const std::string& one : texts) {
                    names.push_back(unmarked(one));
                }
            },
            description)
        ->option_text(text);
}

void add_suffix(CLI::App& command, std::string& suffix) {
    add_text(command, "--suffix",
             "What the server adds to the names of unfinished uploads; .tcp unless told, empty if "
             "none are to be recognised",
             [&suffix](const std::string& text) {
                 suffix = text;
                 return std::string();
             })
        ->type_name("SUFFIX");
}

CLI::Option* add_name(CLI::App& command, const char* id, std::string& name, const char* text,
                      const char* description) {
    return command
        .add_option_function<std::string>(
            id, [&name](const std::string& one) { name = unmarked(one); }, description)
        ->option_text(text);
}

}  // namespace

CommandTable::CommandTable() : program_(program_description, "transmit") {
    program_.formatter(std::make_shared<HelpFormat>());
    program_.footer(program_examples);
    program_.set_help_flag("-h,--help", "Explain the program, or a command, and exit");
    program_.set_version_flag("--version", "transmit " TRANSMIT_VERSION,
                              "Print the version and exit");
    program_.require_subcommand(1);
    program_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    add_transfers();
    add_path_commands();
    add_server_commands();
    CLI::App& help_command =
        add("help", "Explain the program, or a command", "", [this] { return help(); });
    add_name(help_command, "command", help_name_, "[COMMAND]", "What to explain");
    add_common_options(help_command);
}

const CLI::App* CommandTable::find(std::string_view name) const {
    const auto found = program_.get_subcommands(
        [name](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

bool CommandTable::knows(std::string_view option) const {
    return any_has(option, false);
}

bool CommandTable::takes_value(std::string_view option) const {
    return any_has(option, true);
}

bool CommandTable::any_has(std::string_view option, bool with_value) const {
    return !program_
                .get_subcommands([option, with_value](const CLI::App* command) {
                    const CLI::Option* const found =
                        command->get_option_no_throw(std::string(option));
                    return found && (!with_value || !value_name(*found).empty());
                })
                .empty();
}

ExitCode CommandTable::run(std::vector<std::string> command_line) {
    common_.command_line = std::move(command_line);
    if (!storage_name_.empty() && names_a_path()) {
        const auto id = find_storage(common_, storage_name_);
        if (!id) {
            return report_failure(common_, "", id.error());
        }
        common_.defaults.path.storage_id = *id;
    }
    return action_();
}

std::string CommandTable::take_storage(const std::string& text) {
    const bool is_number = std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    storage_name_ = is_number ? "" : text;
    const char* const end = text.data() + text.size();
    return !is_number || std::from_chars(text.data(), end, common_.defaults.path.storage_id) ==
                             std::from_chars_result{end, {}}
               ? ""
               : "'" + text + "' is no number of a storage";
}

// Whether the command works on a path that tells no storage of its own.
bool CommandTable::names_a_path() const {
    std::vector<std::string> all{old_name_};
    for (const auto* names : {&names_, &transfer_.names, &list_.names, &remove_.names}) {
        all.insert(all.end(), names->begin(), names->end());
    }
    const bool lists_root = program_.got_subcommand("ls") && list_.names.empty();
    return lists_root ||
           std::ranges::any_of(all, [](const std::string& name) { return name.starts_with('/'); });
}

ExitCode CommandTable::help() {
    if (help_name_.empty()) {
        std::cout << program_.help();
        return ExitCode::done;
    }
    const CLI::App* const command = find(help_name_);
    if (!command) {
        return report_usage(common_, {ErrorKind::invalid_request, 0,
                                      help_name_ + " is no command; \"transmit help\" lists them"});
    }
    std::cout << command->help(program_.get_name());
    return ExitCode::done;
}

CLI::App& CommandTable::add(const char* name, const char* description, const char* examples,
                            Action action) {
    CLI::App& command = *program_.add_subcommand(name, description);
    command.footer(examples);
    command.callback([this, action = std::move(action)] { action_ = action; });
    command.option_defaults()->group(own_group);
    return command;
}

void CommandTable::add_common_options(CLI::App& command) {
    command.option_defaults()->group(common_group);
    add_server(command, "--server", "Server of names that tell none; 127.0.0.1:30000 unless told")
        ->type_name("HOST[:PORT]");
    add_text(command, "--storage",
             "Storage of names that tell none, its number or name; 1 unless told",
             [this](const std::string& text) { return take_storage(text); })
        ->type_name("STORAGE");
    command
        .add_option("--user", common_.defaults.path.user_id,
                    "User to work for, whose folder paths are counted from where the server gives "
                    "users their own; 0, unless told, is none")
        ->type_name("ID");
    add_seconds(command, "--timeout", common_.silence,
                "Silence of the server after which a connection is given up; 60 unless told");
    command.add_flag("-q,--quiet", common_.quiet, "No progress, no word of retries");
    command.add_flag("-v,--verbose", common_.verbose, "A line for each thing done");
    command.add_flag(
        "--json", common_.json,
        "Results as JSON on standard output, one object a line, and nothing else there");
    command.get_help_ptr()->group(common_group);
}

void CommandTable::add_transfers() {
    CLI::App& put_command =
        add("put", "Send files", put_examples, [this] { return put(common_, transfer_); });
    add_names(put_command, transfer_.names, "FILE... [TARGET]",
              "Local files, - for standard input. The last of two or more names is the target on "
              "the server: " +
                  target_rule() + ". / if left out")
        ->required();
    add_transfer_options(put_command);
    put_command.add_flag("--in-place", transfer_.in_place,
                         "Replace a file directly; else the new version is sent under a side name "
                         "and renamed over the old one when it is whole");
    add_limits(put_command);
    add_common_options(put_command);

    CLI::App& get_command =
        add("get", "Fetch files", get_examples, [this] { return get(common_, transfer_); });
    add_names(get_command, transfer_.names, "SOURCE... [LOCAL]",
              "Files on the server. The last of two or more names is local: " + target_rule() +
                  "; - for standard output. The working folder if left out")
        ->required();
    add_transfer_options(get_command);
    get_command.add_flag("--follow-links", transfer_.follow_links,
                         "Follow symbolic links to folders below the target of -r");
    get_command
        .add_option("--streams", transfer_.streams,
                    "Connections that share what is left of a single file, if one alone would take "
                    "more than ten seconds for it; 4 unless told")
        ->type_name("N")
        ->check(within(1, 64));
    add_limits(get_command);
    add_common_options(get_command);
}

void CommandTable::add_transfer_options(CLI::App& command) {
    command.add_flag("-r,--recursive", transfer_.recursive,
                     "Folders too, with all they hold. A folder gets its own name in a target that "
                     "ends in / or takes several names, else the target's");
    command.add_flag("-n,--dry-run", transfer_.dry_run, "Tell what would be moved, move nothing");
    command
        .add_option(
            "-j,--jobs", transfer_.jobs,
            "Files at once; 4 unless told, or 2 runs of files where only small ones are sent")
        ->type_name("N")
        ->check(within(1, 64));
    command.add_flag("--always", transfer_.always,
                     "Move also what is there already with the same size and time");
    add_choice(command, "--check",
               "How much of what an earlier attempt left is compared before it is gone on with: "
               "its last 64 KiB, unless told, or all",
               transfer_.check_all, {{"tail", false}, {"all", true}});
    command.add_flag("--verify", transfer_.verify,
                     "Read the result back and compare it by SHA-256, also what was there already");
    command.add_flag("--checksum", transfer_.checksum,
                     "Decide by content, not by time, whether a file of the same size is there "
                     "already");
    add_suffix(command, transfer_.server_suffix);
    command.add_flag("--encrypt", transfer_.encrypted,
                     "Encipher the data on its way, which hides it from a casual look only");
}

void CommandTable::add_limits(CLI::App& command) {
    add_text(command, "--limit-rate",
             "Bytes per second of all files together; k, M and G stand for powers of 1024",
             [this](const std::string& text) {
                 const auto rate = parse_rate(text);
                 transfer_.rate = rate.value_or(0);
                 return rate ? std::string() : text + " is no rate such as 500k or 1.5M";
             })
        ->type_name("RATE");
    add_seconds(command, "--max-time", transfer_.max_time,
                "Longest time for the whole; no limit unless told");
    command
        .add_option_function<std::uint32_t>(
            "--retry-for",
            [this](std::uint32_t value) { transfer_.retry_for = std::chrono::seconds(value); },
            "How long a transfer that makes no progress is tried again, in pauses from one "
            "second to a minute; 300 unless told, 0 is never. If told, a server that isn't up yet "
            "is waited for too")
        ->type_name("SECONDS");
    add_choice(command, "--progress",
               "Bars, a line each ten seconds, or none; bars on a terminal and lines elsewhere "
               "unless told",
               transfer_.progress,
               {{"bar", ProgressStyle::bar},
                {"line", ProgressStyle::line},
                {"none", ProgressStyle::none}});
}

void CommandTable::add_path_commands() {
    add_ls();
    CLI::App& mkdir_command = add("mkdir", "Create folders, with those above them", "",
                                  [this] { return mkdir(common_, names_); });
    add_names(mkdir_command, names_, "FOLDER...", "Folders on the server")->required();
    add_common_options(mkdir_command);
    add_rm();
    CLI::App& mv_command = add("mv", "Rename a file or folder", mv_examples,
                               [this] { return mv(common_, old_name_, new_name_); });
    add_name(mv_command, "old", old_name_, "OLD", "What to rename")->required();
    add_name(
        mv_command, "new", new_name_, "NEW",
        "Its new path in the same storage; one that ends in / is the folder to move to. A file "
        "there is replaced")
        ->required();
    add_common_options(mv_command);
    CLI::App& stat_command =
        add("stat", "Tell kind, size and time", "", [this] { return stat(common_, names_); });
    add_names(stat_command, names_, "NAME...", "Files or folders on the server")->required();
    add_common_options(stat_command);
}

void CommandTable::add_ls() {
    CLI::App& command =
        add("ls", "List folders", ls_examples, [this] { return ls(common_, list_); });
    add_names(command, list_.names, "[NAME]...", "Folders or files on the server; / if left out");
    command.add_flag("-l,--long", list_.details, "With size and time");
    command.add_flag("-R,--recursive", list_.recursive, "Folders below too, as paths");
    add_suffix(command, list_.server_suffix);
    add_common_options(command);
}

void CommandTable::add_rm() {
    CLI::App& command =
        add("rm", "Delete files", rm_examples, [this] { return rm(common_, remove_); });
    add_names(command, remove_.names, "NAME...", "Files on the server")->required();
    command.add_flag("-r,--recursive", remove_.recursive, "Folders too, with all they hold");
    command.add_flag("-y,--yes", remove_.unasked,
                     "Don't ask; without a terminal nothing is asked anyway");
    command.add_flag("-n,--dry-run", remove_.dry_run, "Tell what would be deleted, delete nothing");
    add_common_options(command);
}

void CommandTable::add_server_commands() {
    add_server_command("storages", "List the storages", "", [this] { return storages(common_); });
    add_server_command("nodes", "Count the server's connections, this one included", "",
                       [this] { return nodes(common_); });
    CLI::App& speed_command =
        add_server_command("speedtest", "Measure the link in both directions", "",
                           [this] { return speedtest(common_, duration_); });
    add_seconds(speed_command, "--seconds", duration_, "Time for each direction; 3 unless told");
    CLI::App& top_command = add_server_command("top", "Watch the server's transfers and totals",
                                               top_examples, [this] { return top(common_, top_); });
    top_command
        .add_option("--command-port", top_.command_port,
                    "The server's command port; 30001 unless told")
        ->type_name("PORT");
    add_seconds(top_command, "--interval", top_.interval, "Time between two looks; 2 unless told")
        ->check(within(1, 86'400));
    top_command.add_flag("--once", top_.once, "One look and no more");
}

CLI::App& CommandTable::add_server_command(const char* name, const char* description,
                                           const char* examples, Action action) {
    CLI::App& command = add(name, description, examples, std::move(action));
    add_common_options(command);
    add_server(command, "host", "The server; that of --server if left out")
        ->option_text("[HOST[:PORT]]");
    command.option_defaults()->group(own_group);
    return command;
}

CLI::Option* CommandTable::add_server(CLI::App& command, const std::string& name,
                                      const std::string& description) {
    Endpoint& server = common_.defaults.server;
    return add_text(command, name, description, [&server](const std::string& text) {
        const auto endpoint = parse_endpoint(text, server);
        if (endpoint) {
            server = *endpoint;
        }
        return endpoint ? std::string() : endpoint.error().text;
    });
}

}  // namespace transmit::cli
