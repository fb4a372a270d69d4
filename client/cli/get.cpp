#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <unordered_set>

#include "client/cli/commands.h"
#include "client/cli/interrupt.h"
#include "client/cli/names.h"
#include "client/cli/server.h"
#include "client/cli/transfer_run.h"
#include "client/cli/unfinished_upload.h"
#include "client/remote_tree.h"

namespace transmit::cli {
namespace {

constexpr auto standard_output = "-";

// A pipe is opened once more, since waiting for its reader must end with the caller's wish and the
// mode of a descriptor is shared with whoever else has it.
int open_standard_output() {
    struct stat status {};
    const bool is_pipe = fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
    const int own = is_pipe ? open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    return own >= 0 ? own : STDOUT_FILENO;
}

// Waits in short turns, since a signal may reach another thread than this one.
Result<void> await_reader(int output, const Cancelled& cancelled) {
    constexpr int turn = 200;  // milliseconds
    pollfd waiting{output, POLLOUT, 0};
    do {
        if (cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
    } while (poll(&waiting, 1, turn) <= 0);
    return {};
}

Result<void> write_all(const char* data, std::size_t size, const Cancelled& cancelled) {
    static const int output = open_standard_output();
    while (size > 0) {
        if (auto ready = await_reader(output, cancelled); !ready) {
            return ready;
        }
        const ssize_t written = write(output, data, size);
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            return Error{ErrorKind::local_file, 0,
                         "standard output: " + std::generic_category().message(errno)};
        }
        const auto moved = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
        data += moved;
        size -= moved;
    }
    return {};
}

Result<void> write_standard_output(std::span<const iovec> pieces, const Cancelled& cancelled) {
    for (const iovec& piece : pieces) {
        if (auto written =
                write_all(static_cast<const char*>(piece.iov_base), piece.iov_len, cancelled);
            !written) {
            return written;
        }
    }
    return {};
}

// What is to come where.
class DownloadPlan {
  public:
    DownloadPlan(const Common& common, const TransferCommand& command, Endpoint endpoint,
                 std::string local, bool into_folder)
        : command_(command),
          endpoint_(std::move(endpoint)),
          local_(std::move(local)),
          into_folder_(into_folder),
          server_(connect_once(common, endpoint_, command.retry_for)) {}

    // An error that ends all.
    Result<void> add(const RemotePath& source) {
        if (local_ == standard_output) {
            batch_.files.push_back({source, local_, &write_standard_output, {}});
        } else if (command_.recursive) {
            return add_tree(source);
        } else if (remote_name(source.path).empty()) {
            refuse(source,
                   {ErrorKind::invalid_request, 0, "this names no file; -r fetches folders"});
        } else {
            batch_.files.push_back({source, place_of(source, into_folder_), {}, {}});
        }
        return {};
    }

    TransferPlan finish() && {
        refuse_doubles(batch_, [](const DownloadJob& job) { return job.local_path; });
        TransferPlan plan{endpoint_, {}, "fetched", {}};
        for (const DownloadJob& job : batch_.files) {
            const auto size = job.stamp ? std::optional(job.stamp->size) : std::nullopt;
            plan.files.push_back({{job.source.path, job.local_path}, size});
        }
        plan.move = [batch = std::move(batch_)](const Server& server,
                                                const TransferOptions& options,
                                                TransferObserver& observer) {
            return download_files(server, batch, options, observer);
        };
        return plan;
    }

  private:
    // A folder without a name of its own, the root, gives what it holds.
    std::string place_of(const RemotePath& source, bool into_folder) const {
        return into_folder ? joined(local_, remote_name(source.path)) : local_;
    }

    Result<void> add_tree(const RemotePath& source) {
        const auto entry = stat_path(server_, source);
        if (!entry) {
            return note(source, entry.error());
        }
        if (!entry->is_folder) {
            batch_.files.push_back({source,
                                    place_of(source, into_folder_ || is_local_folder(local_)),
                                    {},
                                    FileStamp{entry->size, entry->time}});
            return {};
        }
        auto tree = download_tree(server_, source, place_of(source, into_folder_));
        if (!tree) {
            return note(source, tree.error());
        }
        refuse_unfinished(*tree);
        if (into_folder_) {
            root_at_target(*tree, remote_name(source.path));
        }
        std::ranges::move(tree->files, std::back_inserter(batch_.files));
        std::ranges::move(tree->folders, std::back_inserter(batch_.folders));
        std::ranges::move(tree->refused, std::back_inserter(batch_.refused));
        return {};
    }

    // Not fetched as files, but not passed over in silence either.
    void refuse_unfinished(DownloadBatch& tree) const {
        std::unordered_set<std::string> paths;
        for (const DownloadJob& job : tree.files) {
            paths.insert(job.source.path);
        }
        std::erase_if(tree.files, [&](const DownloadJob& job) {
            const std::string& path = job.source.path;
            const std::string name = remote_name(path);
            const std::string folder = path.substr(0, path.size() - name.size());
            const bool unfinished = is_unfinished_upload(
                name, command_.server_suffix,
                [&](const std::string& other) { return paths.contains(folder + other); });
            if (unfinished) {
                tree.refused.push_back({path,
                                        {ErrorKind::invalid_request, 0,
                                         "this looks like an upload that isn't done; get it by its "
                                         "own name, or see --suffix"}});
            }
            return unfinished;
        });
    }

    // The tree's own folder lies below the target, like all others.
    void root_at_target(DownloadBatch& tree, const std::string& name) const {
        for (DownloadJob& job : tree.files) {
            job.root = local_;
        }
        for (DownloadFolder& folder : tree.folders) {
            folder = {local_, joined(name, folder.below)};
        }
    }

    Result<void> note(const RemotePath& source, const Error& error) {
        if (error.kind != ErrorKind::refused) {
            return error;
        }
        refuse(source, error);
        return {};
    }

    void refuse(const RemotePath& source, Error error) {
        batch_.refused.push_back({source.path, std::move(error)});
    }

    const TransferCommand& command_;
    Endpoint endpoint_;
    std::string local_;
    bool into_folder_;
    RetryingConnection server_;
    DownloadBatch batch_;
};

// A folder's place is told by the command line alone, so that a second run means the same. A file's
// target may prove a folder.
bool goes_into_folder(const std::string& local, std::size_t sources, bool recursive) {
    return sources > 1 || local.ends_with('/') || local_name(local).empty() ||
           (!recursive && is_local_folder(local));
}

}  // namespace

ExitCode get(const Common& common, const TransferCommand& command) {
    set_time_limit(command.max_time);
    std::vector<std::string> names = command.names;
    std::string local = ".";
    if (names.size() > 1) {
        local = names.back();
        names.pop_back();
    }
    const auto sources = parse_targets(names, common.defaults);
    if (!sources) {
        return report_usage(common, sources.error());
    }
    if (local == standard_output && (sources->size() > 1 || command.recursive || common.json)) {
        return report_usage(common, {ErrorKind::invalid_request, 0,
                                     "standard output takes one file, and no JSON beside it"});
    }
    DownloadPlan plan(common, command, sources->front().server, local,
                      goes_into_folder(local, sources->size(), command.recursive));
    for (const Target& source : *sources) {
        if (const auto added = plan.add(source.path); !added) {
            return report_stop(common, command, source.path.path, added.error());
        }
    }
    return run_transfer(common, command, std::move(plan).finish());
}

}  // namespace transmit::cli
