#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "client/cli/exit_code.h"
#include "client/remote.h"

// The commands of the program, one file each. They write results to standard output, everything
// else to standard error.
namespace transmit::cli {

// What all commands share.
struct Common {
    Endpoint server;
    std::uint32_t storage_id = 1;
    std::uint32_t user_id = 0;
    std::chrono::seconds silence{60};     // of the server
    std::chrono::seconds retry_for{300};  // without progress
    bool quiet = false;

    RemotePath at(std::string path) const { return {storage_id, user_id, std::move(path)}; }
};

// Sources and, behind them, the target: with two or more paths the last one.
struct TransferOptions {
    std::vector<std::string> paths;
    bool encrypted = false;
};

struct TopOptions {
    std::uint16_t command_port = 30001;  // on the host of the transmit port
    std::chrono::seconds interval{2};
    bool once = false;
    bool json = false;  // the documents as they come, a line each
};

ExitCode put(const Common& common, const TransferOptions& options);
ExitCode get(const Common& common, const TransferOptions& options);
ExitCode storages(const Common& common);
ExitCode ls(const Common& common, const std::string& path, bool details);
ExitCode mkdir(const Common& common, const std::vector<std::string>& paths);
ExitCode rm(const Common& common, const std::vector<std::string>& paths, bool recursive);
ExitCode mv(const Common& common, const std::string& old_path, const std::string& new_path);
ExitCode nodes(const Common& common);
ExitCode speedtest(const Common& common, std::chrono::seconds duration);

// Until SIGINT, which is its ordinary end.
ExitCode top(const Common& common, const TopOptions& options);

}  // namespace transmit::cli
