#include <string>

#include "fuzz/fuzz_target.h"
#include "kestin_base/xml.h"
#include "src/norvane_transmit_service/configuration.h"

namespace {

void check_settings(const std::string& text) {
    Kestin::Base::Xml document;
    Settings settings;
    if (!document.set_document(text.c_str()) ||
        configuration::read_settings(document, settings).has_value()) {
        return;
    }
    require(!settings.host.empty(), "a host is set");
    require(!settings.transmit_temp_file_suffix.empty(), "temporary files have a suffix");
    require(
        settings.transmit_info_update_interval >= 1 && settings.transmit_info_update_interval <= 5,
        "the interval is within its bounds");
}

void check_storages(const std::string& text) {
    Kestin::Base::Xml document;
    StorageTable storages;
    if (!document.set_document(text.c_str()) ||
        configuration::read_storages(document, storages).has_value()) {
        return;
    }
    for (const auto& [id, storage] : storages) {
        require(id == storage.id && std::stoull(storage.id_text) == id, "an id is what it reads");
        require(!storage.name.empty() && !storage.directory.empty(), "a storage is complete");
    }
}

}  // namespace

// Settings and storage list: refused or complete, whatever they hold.
void run(std::string_view input) {
    check_settings(std::string(input));
    check_storages(std::string(input));
}
