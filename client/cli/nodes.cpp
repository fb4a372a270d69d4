#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

ExitCode nodes(const Common& common) {
    auto connection = connect(common);
    const auto count = connection ? connection->get_norvane_node_count() : connection.error();
    if (!count) {
        complain("", count.error());
        return exit_code(count.error());
    }
    std::printf("%u\n", static_cast<unsigned>(*count));
    return ExitCode::done;
}

}  // namespace transmit::cli
