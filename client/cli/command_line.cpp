#include "client/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "client/cli/commands.h"

namespace transmit::cli {
namespace {

constexpr auto introduction = R"(Examples:
  transmit put report.pdf                  send a file to storage 1 of the server on this machine
  transmit put *.jpg holiday/              send files into a folder
  transmit get holiday/beach.jpg           fetch a file into the working folder
  transmit --server files.example.org:30000 --storage 2 ls -l holiday
  transmit top                             watch what the server does

Sends files to a transmit server and fetches them from it. Transfers that break off go on by
themselves; after an interruption the same command goes on where it stopped.)";

constexpr auto closing = R"(Exit codes: 0 done, 1 other error, 2 usage, 3 folder not found, 4 file
not found, 5 temporary, 6 some files failed, 7 no connection, 10 time limit, 130 interrupted.)";

// HOST, HOST:PORT or :PORT, over what `server` holds. The result is CLI11's: an error text, or
// nothing.
std::string parse_server(const std::string& text, Endpoint& server) {
    const auto colon = text.rfind(':');
    if (colon != 0) {
        server.host = text.substr(0, colon);
    }
    if (colon == std::string::npos) {
        return {};
    }
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, server.port);
    return error == std::errc() && stop == end && server.port != 0
               ? std::string()
               : "HOST[:PORT] with a port from 1 to 65535 is wanted, not " + text;
}

// Whole seconds for an option.
CLI::Option* add_seconds(CLI::App& app, const std::string& name, std::chrono::seconds& seconds,
                         const std::string& description) {
    return app
        .add_option_function<std::uint32_t>(
            name, [&seconds](std::uint32_t value) { seconds = std::chrono::seconds(value); },
            description)
        ->type_name("SECONDS")
        ->default_str(std::to_string(seconds.count()));
}

// The program's options and commands, and the values that a command line gives them.
class Parser {
  public:
    Parser() : program_(introduction, "transmit") {
        program_.footer(closing);
        program_.require_subcommand(1);
        program_.fallthrough();
        program_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        program_.get_formatter()->column_width(34);
        add_common_options();
        add_transfers();
        add_path_commands();
        add_server_commands();
    }

    ExitCode run(int argument_count, char** arguments) {
        try {
            program_.parse(argument_count, arguments);
        } catch (const CLI::ParseError& error) {
            return program_.exit(error) == 0 ? ExitCode::done : ExitCode::usage;
        }
        return action_();
    }

  private:
    void add_common_options() {
        program_
            .add_option_function<std::string>(
                "--server",
                [this](const std::string& text) {
                    if (const auto error = parse_server(text, common_.server); !error.empty()) {
                        throw CLI::ValidationError("--server", error);
                    }
                },
                "Where the server listens")
            ->type_name("HOST[:PORT]")
            ->default_str("127.0.0.1:30000");
        program_.add_option("--storage", common_.storage_id, "Storage to work in")
            ->type_name("ID")
            ->capture_default_str();
        program_.add_option("--user", common_.user_id, "User to work for; 0 is none")
            ->type_name("ID")
            ->capture_default_str();
        add_seconds(program_, "--timeout", common_.silence, "Longest silence of the server");
        add_seconds(program_, "--retry-for", common_.retry_for,
                    "How long a transfer that makes no progress tries again; 0 is never");
        program_.add_flag("-q,--quiet", common_.quiet, "No progress, no word of retries");
    }

    CLI::App& add(const char* name, const char* description, std::function<ExitCode()> action) {
        CLI::App& command = *program_.add_subcommand(name, description);
        command.callback([this, action = std::move(action)] { action_ = action; });
        return command;
    }

    void add_transfers() {
        auto& put_command = add("put", "Send files: FILE... [TARGET-FOLDER-OR-NAME]",
                                [this] { return put(common_, transfer_); });
        put_command
            .add_option("paths", transfer_.paths,
                        "Local files; of two or more names the last is the target on the server, a "
                        "folder if it ends in / or exists as one")
            ->required();
        auto& get_command =
            add("get", "Fetch files: PATH... [LOCAL]", [this] { return get(common_, transfer_); });
        get_command
            .add_option("paths", transfer_.paths,
                        "Files of the server; of two or more names the last is the local folder or "
                        "file name")
            ->required();
        for (CLI::App* command : {&put_command, &get_command}) {
            command->add_flag("--encrypt", transfer_.encrypted, "Encipher the data on its way");
        }
    }

    void add_path_commands() {
        auto& ls_command = add("ls", "List a folder", [this] { return ls(common_, path_, flag_); });
        ls_command.add_option("path", path_, "Folder or file; the storage's root if left out");
        ls_command.add_flag("-l", flag_, "With size and time");
        add("mkdir", "Create folders, with those above them",
            [this] { return mkdir(common_, paths_); })
            .add_option("paths", paths_)
            ->required();
        auto& rm_command = add("rm", "Delete files", [this] { return rm(common_, paths_, flag_); });
        rm_command.add_option("paths", paths_)->required();
        rm_command.add_flag("-r", flag_, "Folders too, with all they hold");
        auto& mv_command =
            add("mv", "Rename a file or folder", [this] { return mv(common_, path_, new_path_); });
        mv_command.add_option("old", path_, "What to rename")->required();
        mv_command.add_option("new", new_path_, "Its new path; one that ends in / is a folder")
            ->required();
    }

    void add_server_commands() {
        add("storages", "List the storages", [this] { return storages(common_); });
        add("nodes", "Count the server's connections", [this] { return nodes(common_); });
        auto& speed_command = add("speedtest", "Measure the link in both directions",
                                  [this] { return speedtest(common_, duration_); });
        add_seconds(speed_command, "--seconds", duration_, "Time for each direction");
        auto& top_command = add("top", "Watch the server's transfers and totals",
                                [this] { return top(common_, top_); });
        top_command.add_option("--command-port", top_.command_port, "The server's command port")
            ->type_name("PORT")
            ->capture_default_str();
        add_seconds(top_command, "--interval", top_.interval, "Time between two looks")
            ->check(CLI::Range(1U, 86'400U));
        top_command.add_flag("--once", top_.once, "One look and no more");
        top_command.add_flag("--json", top_.json,
                             "The server's documents as they are, a line each");
    }

    CLI::App program_;
    std::function<ExitCode()> action_;
    Common common_;
    TransferOptions transfer_;
    std::vector<std::string> paths_;
    std::string path_;
    std::string new_path_;
    bool flag_ = false;
    std::chrono::seconds duration_{3};
    TopOptions top_;
};

}  // namespace

ExitCode run_command_line(int argument_count, char** arguments) {
    return Parser().run(argument_count, arguments);
}

}  // namespace transmit::cli
