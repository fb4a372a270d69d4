#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"
#include "client/remote_tree.h"

namespace transmit::cli {
namespace {

std::string question(const Entry& entry, const RemotePath& path) {
    return entry.is_folder ? "Delete the folder " + shown(path.path) + " with all it holds?"
                           : "Delete " + shown(path.path) + "?";
}

void tell(const Common& common, const Entry& entry, const RemotePath& path, bool dry_run) {
    const std::string event = dry_run ? "would_remove" : "removed";
    if (common.json) {
        print_line(
            {{"event", event}, {"path", path.path}, {"type", entry.is_folder ? "folder" : "file"}});
    } else if (dry_run) {
        std::printf("%s\n", shown(path.path).c_str());
    } else if (common.verbose) {
        complain(path.path + " is deleted");
    }
}

// The server deletes folders with all they hold, and tells nobody of what was never there: so it is
// asked first.
Result<void> remove(const Common& common, const RemoveCommand& command, RetryingConnection& server,
                    const RemotePath& path) {
    const auto entry = stat_path(server, path);
    if (!entry) {
        return entry.error();
    }
    if (entry->is_folder && !command.recursive) {
        return Error{ErrorKind::invalid_request, 0, "this is a folder; -r deletes folders too"};
    }
    if (!command.dry_run) {
        if (!command.unasked && can_ask() && !asked(question(*entry, path))) {
            return {};
        }
        auto removed =
            server.run([&path](Connection& connection) { return connection.delete_path(path); });
        if (!removed) {
            return removed;
        }
    }
    tell(common, *entry, path, command.dry_run);
    return {};
}

}  // namespace

ExitCode rm(const Common& common, const RemoveCommand& command) {
    return for_each_target(common, command.names,
                           [&](RetryingConnection& server, const RemotePath& path) {
                               return remove(common, command, server, path);
                           });
}

}  // namespace transmit::cli
