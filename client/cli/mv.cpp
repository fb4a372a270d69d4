#include "client/cli/commands.h"
#include "client/cli/names.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

ExitCode mv(const Common& common, const std::string& old_path, const std::string& new_path) {
    auto connection = connect(common);
    if (!connection) {
        complain("", connection.error());
        return exit_code(connection.error());
    }
    const std::string target =
        ends_in_separator(new_path) ? joined(new_path, remote_name(old_path)) : new_path;
    const auto renamed = connection->rename_path(common.at(old_path), target);
    if (!renamed) {
        complain(old_path, renamed.error());
        return exit_code(renamed.error());
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
