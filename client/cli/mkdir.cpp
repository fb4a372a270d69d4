#include "client/cli/batch.h"
#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

ExitCode mkdir(const Common& common, const std::vector<std::string>& paths) {
    auto connection = connect(common);
    if (!connection) {
        complain("", connection.error());
        return exit_code(connection.error());
    }
    return for_each(paths, [&](const std::string& path) {
        const auto created = connection->create_directory(common.at(path));
        if (!created) {
            complain(path, created.error());
            return exit_code(created.error());
        }
        return ExitCode::done;
    });
}

}  // namespace transmit::cli
