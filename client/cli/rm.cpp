#include "client/cli/batch.h"
#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "src/message/status.h"

namespace transmit::cli {
namespace {

// The server deletes folders with all they hold, and tells nobody of what was never there. Asking
// for a download first tells files from folders and from nothing.
Result<void> check_is_file(Connection& connection, const RemotePath& path) {
    const auto stamp = connection.download_file_prepare(path, false);
    if (stamp) {
        return connection.download_file_finish();
    }
    if (stamp.error().status == message::status_path_is_directory) {
        return Error{ErrorKind::invalid_request, 0, "this is a folder; -r deletes folders too"};
    }
    return stamp.error();
}

Result<void> remove(Connection& connection, const RemotePath& path, bool recursive) {
    if (!recursive) {
        if (auto is_file = check_is_file(connection, path); !is_file) {
            return is_file;
        }
    }
    return connection.delete_path(path);
}

}  // namespace

ExitCode rm(const Common& common, const std::vector<std::string>& paths, bool recursive) {
    auto connection = connect(common);
    if (!connection) {
        complain("", connection.error());
        return exit_code(connection.error());
    }
    return for_each(paths, [&](const std::string& path) {
        const auto removed = remove(*connection, common.at(path), recursive);
        if (!removed) {
            complain(path, removed.error());
            return exit_code(removed.error());
        }
        return ExitCode::done;
    });
}

}  // namespace transmit::cli
