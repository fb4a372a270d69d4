#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"

namespace transmit::cli {

ExitCode nodes(const Common& common) {
    const auto count = connect_once(common, common.defaults.server).run([](Connection& connection) {
        return connection.get_norvane_node_count();
    });
    if (!count) {
        return report_failure(common, "", count.error());
    }
    if (common.json) {
        print_line({{"nodes", *count}});
    } else {
        std::printf("%u\n", static_cast<unsigned>(*count));
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
