#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/listing.h"

namespace transmit::cli {
namespace {

Result<std::vector<Storage>> fetch_storages(const Common& common) {
    auto connection = connect(common);
    if (!connection) {
        return connection.error();
    }
    const auto document = connection->get_storage_information();
    if (!document) {
        return document.error();
    }
    return parse_storages(*document);
}

}  // namespace

ExitCode storages(const Common& common) {
    const auto list = fetch_storages(common);
    if (!list) {
        complain("", list.error());
        return exit_code(list.error());
    }
    for (const Storage& storage : *list) {
        std::printf("%s\t%s\n", shown(storage.id).c_str(), shown(storage.name).c_str());
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
