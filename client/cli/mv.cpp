#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/names.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {
namespace {

// The new path, which names no server or the old one's.
Result<std::string> new_path(const Target& old_target, const std::string& new_name) {
    const auto target = parse_target(new_name, old_target);
    if (!target) {
        return target.error();
    }
    if (target->server != old_target.server ||
        target->path.storage_id != old_target.path.storage_id) {
        return Error{ErrorKind::invalid_request, 0,
                     new_name + ": a rename stays in one storage; get and put move further"};
    }
    return ends_in_separator(target->path.path)
               ? joined(target->path.path, remote_name(old_target.path.path))
               : target->path.path;
}

}  // namespace

ExitCode mv(const Common& common, const std::string& old_name, const std::string& new_name) {
    const auto old_target = parse_target(old_name, common.defaults);
    const auto path = old_target ? new_path(*old_target, new_name) : old_target.error();
    if (!path) {
        return report_usage(common, path.error());
    }
    const auto rename = [&](RetryingConnection& server, const RemotePath& old_path) {
        auto renamed = server.run(
            [&](Connection& connection) { return connection.rename_path(old_path, *path); });
        if (renamed && common.json) {
            print_line({{"event", "renamed"}, {"path", old_path.path}, {"new_path", *path}});
        } else if (renamed && common.verbose) {
            complain(old_path.path + " is " + *path + " now");
        }
        return renamed;
    };
    return for_each_target(common, {old_name}, rename);
}

}  // namespace transmit::cli
