#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

ExitCode nodes(const Common& common) {
    const auto count = connect_once(common, common.defaults.server).run([](Connection& connection) {
        return connection.get_norvane_node_count();
    });
    if (!count) {
        complain("", count.error());
        return exit_code(count.error());
    }
    if (common.json) {
        print_line({{"nodes", *count}});
    } else {
        std::printf("%u\n", static_cast<unsigned>(*count));
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
