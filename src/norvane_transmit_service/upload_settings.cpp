#include "kestin_base/file_system.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

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
