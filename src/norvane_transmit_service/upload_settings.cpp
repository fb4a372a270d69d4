#include "kestin_base/file_system.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/operation_log.h"

namespace {

constexpr LogSource log_source{.file = "src/norvane_transmit_service",
                               .class_name = "NorvaneTransmitService"};

}  // namespace

WritePolicy NorvaneTransmitService::write_policy() const {
    return {.is_durable = settings_.durable_upload,
            .checkpoint_size = static_cast<std::int64_t>(settings_.checkpoint_mib << 20U)};
}

bool NorvaneTransmitService::may_create_in(std::uint32_t storage_id) const {
    const Storage& storage = storages_.at(storage_id);
    bool is_directory = false;
    return storage.create_directory ||
           (Kestin::Base::kestin_path_is_directory(storage.directory.c_str(), is_directory) &&
            is_directory);
}

void NorvaneTransmitService::warn_of_storages_without_locks() const {
    const OperationLog log(log_source);
    for (const auto& [id, storage] : storages_) {
        if (!Kestin::Base::kestin_can_lock(storage.directory)) {
            log.warning(system_cause(),
                        "storage %u (%s) can not lock files: two servers, or two storages that "
                        "share its files, may spoil each other's uploads",
                        id, storage.directory.c_str());
        }
    }
}
