#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/cli/exit_code.h"
#include "client/cli/target.h"

// The commands of the program, one file each, and the values that a command line gives them. They
// write results to standard output, everything else to standard error.
namespace transmit::cli {

// What all commands share.
struct Common {
    Target defaults;                   // server, storage and user of paths that name none
    std::chrono::seconds silence{60};  // of the server, that is borne
    bool quiet = false;
    bool verbose = false;
    bool json = false;
    std::vector<std::string> command_line;  // as it was typed
};

enum class ProgressStyle { automatic, bar, line, none };

// Of put and get. The last of two or more names is the target.
struct TransferCommand {
    std::vector<std::string> names;
    bool recursive = false;
    bool encrypted = false;
    bool in_place = false;
    bool follow_links = false;
    bool always = false;
    bool verify = false;
    bool check_all = false;
    bool dry_run = false;
    std::optional<int> jobs;
    int streams = 4;
    std::uint64_t rate = 0;            // bytes per second; 0: no limit
    std::chrono::seconds max_time{0};  // of the whole; 0: no limit
    // Without progress, 300 unless told; told, a server that isn't up yet is waited for too.
    std::optional<std::chrono::seconds> retry_for;
    std::string server_suffix = ".tcp";
    bool checksum = false;
    ProgressStyle progress = ProgressStyle::automatic;
};

struct ListCommand {
    std::vector<std::string> names;
    bool details = false;
    bool recursive = false;
    std::string server_suffix = ".tcp";
};

struct RemoveCommand {
    std::vector<std::string> names;
    bool recursive = false;
    bool unasked = false;
    bool dry_run = false;
};

struct TopCommand {
    std::uint16_t command_port = 30001;  // on the host of the transmit port
    std::chrono::seconds interval{2};
    bool once = false;
};

ExitCode put(const Common& common, const TransferCommand& command);
ExitCode get(const Common& common, const TransferCommand& command);
ExitCode ls(const Common& common, const ListCommand& command);
ExitCode mkdir(const Common& common, const std::vector<std::string>& names);
ExitCode rm(const Common& common, const RemoveCommand& command);
ExitCode mv(const Common& common, const std::string& old_name, const std::string& new_name);
ExitCode stat(const Common& common, const std::vector<std::string>& names);
ExitCode storages(const Common& common);
ExitCode nodes(const Common& common);
ExitCode speedtest(const Common& common, std::chrono::seconds duration);

// Until SIGINT, which is its ordinary end.
ExitCode top(const Common& common, const TopCommand& command);

}  // namespace transmit::cli
