#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "client/cli/commands.h"
#include "client/cli/interrupt.h"
#include "client/cli/names.h"
#include "client/cli/server.h"
#include "client/cli/transfer_run.h"

namespace transmit::cli {
namespace {

namespace fs = std::filesystem;

constexpr auto standard_input = "-";

Error unusable_name() {
    return {ErrorKind::invalid_request, 0,
            "this is no name for the server, which takes \\ for a separator; give the target's "
            "name"};
}

std::optional<std::int64_t> size_of(const std::string& file) {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    return error ? std::nullopt : std::optional(static_cast<std::int64_t>(size));
}

// Waits in short turns, since a signal may reach another thread than this one.
Result<std::size_t> read_standard_input(std::span<char> memory, const Cancelled& cancelled) {
    constexpr int turn = 200;  // milliseconds
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, turn) <= 0) {
        if (cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
    }
    const ssize_t size = read(STDIN_FILENO, memory.data(), memory.size());
    if (size < 0) {
        return Error{ErrorKind::local_file, 0,
                     "standard input: " + std::generic_category().message(errno)};
    }
    return static_cast<std::size_t>(size);
}

// What is to go where. A folder's place is told by the command line alone, so that a second run
// means the same. A file's target may prove a folder.
class UploadPlan {
  public:
    UploadPlan(const TransferCommand& command, Target target, bool into_folder)
        : command_(command), target_(std::move(target)), into_folder_(into_folder) {}

    void add(const std::string& source) {
        if (source == standard_input) {
            batch_.files.push_back({source, target_.path, &read_standard_input});
        } else if (is_local_folder(source)) {
            add_folder(source);
        } else if (into_folder_ && local_name(source).empty()) {
            refuse(source, unusable_name());
        } else {
            batch_.files.push_back(
                {source, place_of(source), {}, local_name(source), size_of(source)});
        }
    }

    TransferPlan finish() && {
        refuse_doubles(batch_, [](const UploadJob& job) { return job.target.path; });
        TransferPlan plan{target_.server, {}, "sent", {}};
        for (const UploadJob& job : batch_.files) {
            plan.files.push_back({{job.local_path, job.target.path}, job.size});
        }
        plan.move = [batch = std::move(batch_)](const Server& server,
                                                const TransferOptions& options,
                                                TransferObserver& observer) {
            return upload_files(server, batch, options, observer);
        };
        return plan;
    }

  private:
    // A folder without a name of its own, such as "." or "/", gives what it holds.
    RemotePath place_of(const std::string& source) const {
        RemotePath place = target_.path;
        if (into_folder_) {
            place.path = joined(place.path, local_name(source));
        }
        return place;
    }

    void add_folder(const std::string& source) {
        if (!command_.recursive) {
            refuse(source, {ErrorKind::invalid_request, 0, "this is a folder; -r sends folders"});
            return;
        }
        auto tree = upload_tree(source, place_of(source), &interrupted);
        if (!tree) {
            refuse(source, tree.error());
            return;
        }
        std::ranges::move(tree->files, std::back_inserter(batch_.files));
        std::ranges::move(tree->folders, std::back_inserter(batch_.folders));
        std::ranges::move(tree->refused, std::back_inserter(batch_.refused));
    }

    void refuse(const std::string& source, Error error) {
        batch_.refused.push_back({source, std::move(error)});
    }

    const TransferCommand& command_;
    Target target_;
    bool into_folder_;
    UploadBatch batch_;
};

}  // namespace

ExitCode put(const Common& common, const TransferCommand& command) {
    set_time_limit(command.max_time);
    std::vector<std::string> sources = command.names;
    std::string target_name = "/";
    if (sources.size() > 1) {
        target_name = sources.back();
        sources.pop_back();
    }
    const auto target = parse_target(target_name, common.defaults);
    if (!target) {
        return report_usage(common, target.error());
    }
    const bool into_folder = sources.size() > 1 || remote_name(target->path.path).empty() ||
                             ends_in_separator(target->path.path);
    if (into_folder && std::ranges::count(sources, standard_input) > 0) {
        return report_usage(common, {ErrorKind::invalid_request, 0,
                                     "standard input needs the name that it gets: transmit put - "
                                     "/docs/NAME"});
    }
    UploadPlan plan(command, *target, into_folder);
    for (const std::string& source : sources) {
        plan.add(source);
    }
    return run_transfer(common, command, std::move(plan).finish());
}

}  // namespace transmit::cli
