#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

ExitCode mkdir(const Common& common, const std::vector<std::string>& names) {
    const auto create = [&](RetryingConnection& server, const RemotePath& path) {
        auto created = server.run(
            [&path](Connection& connection) { return connection.create_directory(path); });
        if (created && common.json) {
            print_line({{"event", "created"}, {"path", path.path}});
        } else if (created && common.verbose) {
            complain(path.path + " is there");
        }
        return created;
    };
    return for_each_target(common, names, create);
}

}  // namespace transmit::cli
