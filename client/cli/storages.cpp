#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/text.h"
#include "client/listing.h"

namespace transmit::cli {
namespace {

Result<std::vector<Storage>> fetch_storages(const Common& common) {
    const auto document =
        connect_once(common, common.defaults.server).run([](Connection& connection) {
            return connection.get_storage_information();
        });
    return document ? parse_storages(*document) : document.error();
}

}  // namespace

ExitCode storages(const Common& common) {
    const auto list = fetch_storages(common);
    if (!list) {
        return report_failure(common, "", list.error());
    }
    for (const Storage& storage : *list) {
        if (common.json) {
            print_line({{"id", storage.id}, {"name", storage.name}});
        } else {
            std::printf("%s\t%s\n", shown(storage.id).c_str(), shown(storage.name).c_str());
        }
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
