#include "src/norvane_transmit_service/configuration.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "kestin_base/xml.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace configuration {
namespace {

using Kestin::Base::Xml;

// An optional element that is missing leaves its field as a new Settings or Storage has it.
enum Presence { required, optional };

// An element of a document and the field that it fills. `read` returns false if the text is no
// value of the field. The fault is then `invalid` or, if that is null, the same as for a missing
// element.
template <typename Target>
struct Element {
    const char* name;
    bool (*read)(const std::string& text, Target& target);
    Presence presence = required;
    const char* invalid = nullptr;
};

// Leading white space is skipped, and what stands behind the value isn't looked at. Booleans are
// the words "true" and "false".
template <typename Value>
bool read_value(const std::string& text, Value& value) {
    std::istringstream stream(text);
    stream >> std::boolalpha >> std::ws;
    // Of a negative number a stream would make a large one.
    return stream.peek() != '-' && stream >> value;
}

template <auto field, typename Target>
bool read_field(const std::string& text, Target& target) {
    return read_value(text, target.*field);
}

template <auto field, typename Target>
bool read_text(const std::string& text, Target& target) {
    target.*field = text;
    return !text.empty();
}

bool read_suffix(const std::string& text, Settings& settings) {
    settings.transmit_temp_file_suffix = text.empty() ? ".tcp" : text;
    return true;
}

bool read_interval(const std::string& text, Settings& settings) {
    std::uint64_t seconds = 0;
    const bool is_number = read_value(text, seconds);
    settings.transmit_info_update_interval = std::clamp<std::uint64_t>(seconds, 1, 5);
    return is_number;
}

bool read_filename(const std::string& text, Settings& settings) {
    settings.storage_configuration = text;
    return true;
}

bool read_checkpoint(const std::string& text, Settings& settings) {
    constexpr std::uint64_t most = 1 << 20;  // a TiB
    const bool is_number = read_value(text, settings.checkpoint_mib);
    settings.checkpoint_mib = std::min(settings.checkpoint_mib, most);
    return is_number;
}

bool read_storage_id(const std::string& text, Storage& storage) {
    storage.id_text = text;
    return read_value(text, storage.id);
}

constexpr auto settings_elements = std::to_array<Element<Settings>>({
    {"host", read_text<&Settings::host>, required, "transmit server host is invalid"},
    {"port", read_field<&Settings::transmit_port>},
    {"command_port", read_field<&Settings::command_port>},
    {"use_user_id", read_field<&Settings::use_user_id>},
    {"group_by_user_id", read_field<&Settings::group_by_user_id>},
    {"pathname_use_lower", read_field<&Settings::pathname_use_lower>},
    {"transmit_temp_file_suffix", read_suffix},
    {"transmit_info_update_interval", read_interval},
    {"storage_configuration", read_filename},
    {"durable_upload", read_field<&Settings::durable_upload>, optional},
    {"checkpoint_mib", read_checkpoint, optional},
});

constexpr auto storage_elements = std::to_array<Element<Storage>>({
    {"id", read_storage_id, required, "storage id is invalid"},
    {"name", read_text<&Storage::name>, required, "storage name is invalid"},
    {"directory", read_text<&Storage::directory>, required, "storage directory is invalid"},
    {"create_directory", read_field<&Storage::create_directory>, optional},
});

std::string failed(const char* step, const std::string& argument) {
    return std::string(step) + " <" + argument + "> failed";
}

template <typename Target>
Fault read_element(Xml& document, const Element<Target>& element, Target& target) {
    std::string text;
    const bool found = document.get_element(element.name, text);
    if (found ? element.read(text, target) : element.presence == optional) {
        return {};
    }
    return found && element.invalid != nullptr ? element.invalid
                                               : failed("get_element", element.name);
}

Fault read_elements(Xml& document, const auto& elements, auto& target) {
    for (const auto& element : elements) {
        if (Fault fault = read_element(document, element, target)) {
            return fault;
        }
    }
    return {};
}

// Reads what stands inside the element `name`.
Fault read_inside(Xml& document, const char* name, auto read) {
    if (!document.into_element(name)) {
        return failed("into_element", name);
    }
    if (Fault fault = read()) {
        return fault;
    }
    return document.outof_element() ? Fault{} : failed("outof_element", name);
}

Fault read_storage(const std::string& item, Storage& storage) {
    Xml document;
    if (!document.set_document(item.c_str())) {
        return failed("set_document", item);
    }
    return read_inside(document, "item", [&] {
        // Without an element, or without a boolean in it, the storage is not shown.
        std::string show;
        document.get_element("show", show);
        read_value(show, storage.show);
        return read_elements(document, storage_elements, storage);
    });
}

}  // namespace

Fault read_settings(Xml& document, Settings& settings) {
    return read_inside(document, "transmit_server",
                       [&] { return read_elements(document, settings_elements, settings); });
}

Fault read_storages(Xml& document, StorageTable& storages) {
    return read_inside(document, "storages", [&]() -> Fault {
        std::string item;
        while (document.get_sub_document(item)) {
            Storage storage;
            if (Fault fault = read_storage(item, storage)) {
                return fault;
            }
            storages.insert_or_assign(storage.id, storage);
        }
        return {};
    });
}

}  // namespace configuration

bool NorvaneTransmitService::parse_configuration() {
    const OperationLog log = operation_log();
    const auto check = [&log](const configuration::Fault& fault) {
        if (fault) {
            log.error("%s", fault->c_str());
        }
        return !fault;
    };
    const auto load = [&log](Kestin::Base::Xml& document, const std::string& filename) {
        const bool loaded = document.load(filename.c_str());
        if (!loaded) {
            log.critical("load failed, filename:{%s}", filename.c_str());
        }
        return loaded;
    };
    Kestin::Base::Xml settings;
    Kestin::Base::Xml storages;
    if (!(load(settings, root_directory_ + "cfg/config.xml") &&
          check(configuration::read_settings(settings, settings_)) &&
          load(storages, settings_.storage_configuration) &&
          check(configuration::read_storages(storages, storages_)))) {
        return false;
    }
    std::vector<std::uint32_t> storage_ids;
    for (auto& [id, storage] : storages_) {
        storage_ids.push_back(id);
        format_pathname(storage.directory + '/', storage.directory, true);
    }
    storage_gate_.open(storage_ids);
    roster_.set_update_interval(settings_.transmit_info_update_interval);
    return true;
}

// The suffix of temporary files stays.
void NorvaneTransmitService::forget_configuration() {
    Settings defaults;
    defaults.transmit_temp_file_suffix = settings_.transmit_temp_file_suffix;
    settings_ = defaults;
    storages_.clear();
    root_directory_.clear();
}
