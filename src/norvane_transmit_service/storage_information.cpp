#include "kestin_base/xml.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

// <root><storage id="2" name="Public"/>...</root>, in rising order of ids.
bool NorvaneTransmitService::make_storage_information(std::string& document) const {
    const OperationLog log = operation_log();
    document.clear();
    const auto check = [&log](bool done, const char* step, const char* name) {
        if (!done) {
            log.error("%s <%s> failed", step, name);
        }
        return done;
    };
    Kestin::Base::Xml xml;
    const auto add_storage = [&](const Storage& storage) {
        return check(xml.add_child_element("storage", nullptr), "add_child_element", "storage") &&
               check(xml.add_child_attribute("id", storage.id_text), "add_child_attribute", "id") &&
               check(xml.add_child_attribute("name", storage.name), "add_child_attribute", "name");
    };
    if (!check(xml.add_element("root", nullptr), "add_element", "root")) {
        return false;
    }
    for (const auto& [id, storage] : storages_) {
        if (storage.show && !add_storage(storage)) {
            return false;
        }
    }
    document = xml.get_document();
    return true;
}
