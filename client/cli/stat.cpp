#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/entry_output.h"
#include "client/cli/server.h"
#include "client/cli/text.h"
#include "client/remote_tree.h"

namespace transmit::cli {
namespace {

void print(const Entry& entry, const RemotePath& path) {
    std::printf("%s: %s", shown(path.path).c_str(), entry.is_folder ? "folder" : "file");
    if (!entry.is_folder) {
        std::printf(", %lld bytes (%s), %s", static_cast<long long>(entry.size),
                    shown_size(static_cast<double>(entry.size)).c_str(),
                    shown_time(entry.time).c_str());
    }
    std::printf("\n");
}

}  // namespace

ExitCode stat(const Common& common, const std::vector<std::string>& names) {
    const auto tell = [&](RetryingConnection& server, const RemotePath& path) -> Result<void> {
        const auto entry = stat_path(server, path);
        if (!entry) {
            return entry.error();
        }
        if (common.json) {
            print_line(entry_object(*entry, path.path));
        } else {
            print(*entry, path);
        }
        return {};
    };
    return for_each_target(common, names, tell);
}

}  // namespace transmit::cli
