#include "src/norvane_transmit_service/storage_warnings.h"

#include "kestin_base/file_system.h"

namespace {

using namespace Kestin::Base;

void warn_of_storage(const OperationLog& log, const Storage& storage, const std::string& root) {
    const char* folder = storage.directory.c_str();
    bool is_directory = false;
    if (!kestin_path_is_directory(folder, is_directory)) {
        log.warning(system_cause(), "the folder of storage %u can not be found: %s", storage.id,
                    folder);
        return;
    }
    if (!is_directory) {
        log.warning("the folder of storage %u is not a folder: %s", storage.id, folder);
        return;
    }
    if (kestin_is_inside(root.c_str(), folder)) {
        log.warning(
            "storage %u (%s) holds the folder of the server, so that clients can change its "
            "settings and its program",
            storage.id, folder);
    }
    if (!kestin_can_lock(storage.directory)) {
        log.warning(
            system_cause(),
            "storage %u (%s) can not lock files: two servers, or two storages that share its "
            "files, may spoil each other's uploads",
            storage.id, folder);
    }
}

}  // namespace

void warn_of_storages(const OperationLog& log, const StorageTable& storages,
                      const std::string& root) {
    for (const auto& [id, storage] : storages) {
        warn_of_storage(log, storage, root);
    }
}
