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

// How the text of an element becomes the value of a field.
template <typename Target>
struct Reader {
    // NOLINTNEXTLINE(google-explicit-constructor): a row of a table names a function as it is
    constexpr Reader(bool (*function)(const std::string& text, Target& target),
                     const char* wanted = "another text")
        : read(function), expects(wanted) {}

    // Returns false if the text is no value of the field.
    bool (*read)(const std::string& text, Target& target);
    const char* expects;  // what the text must be, in words for a person
};

// An element of a document and the field that it fills. If the text is no value of the field, the
// fault is `invalid` or, if that is null, the same as for a missing element.
template <typename Target>
struct Element {
    const char* name;
    Reader<Target> reader;
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

template <typename Value>
constexpr const char* expectation = "a whole number that is not negative";
template <>
constexpr const char* expectation<bool> = "the word true or the word false";

template <typename Target, typename Value>
Target target_of(Value Target::*);
template <typename Target, typename Value>
Value value_of(Value Target::*);
template <auto field>
using TargetOf = decltype(target_of(field));
template <auto field>
using ValueOf = decltype(value_of(field));

template <auto field>
constexpr Reader<TargetOf<field>> read_field{
    [](const std::string& text, auto& target) { return read_value(text, target.*field); },
    expectation<ValueOf<field>>};

template <auto field>
constexpr Reader<TargetOf<field>> read_text{[](const std::string& text, auto& target) {
                                                target.*field = text;
                                                return !text.empty();
                                            },
                                            "a text that is not empty"};

template <auto field>
constexpr Reader<Settings> read_port{[](const std::string& text, Settings& settings) {
                                         return read_value(text, settings.*field) &&
                                                settings.*field != 0;
                                     },
                                     "a number from 1 to 65535"};

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
    {"port", read_port<&Settings::transmit_port>},
    {"command_port", read_port<&Settings::command_port>},
    {"use_user_id", read_field<&Settings::use_user_id>},
    {"group_by_user_id", read_field<&Settings::group_by_user_id>},
    {"pathname_use_lower", read_field<&Settings::pathname_use_lower>},
    {"transmit_temp_file_suffix", read_suffix},
    {"transmit_info_update_interval", read_interval},
    {"storage_configuration", read_filename},
    {"durable_upload", read_field<&Settings::durable_upload>, optional},
    {"checkpoint_mib", {read_checkpoint, expectation<std::uint64_t>}, optional},
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

std::string in_brackets(const std::string& name) {
    return "<" + name + ">";
}

template <typename Target>
Fault read_element(Xml& document, const Element<Target>& element, Target& target) {
    std::string text;
    const bool found = document.get_element(element.name, text);
    if (found ? element.reader.read(text, target) : element.presence == optional) {
        return {};
    }
    const std::string name = in_brackets(element.name);
    return Problem{
        .text = found && element.invalid != nullptr ? element.invalid
                                                    : failed("get_element", element.name),
        .line = document.line_of(element.name),
        .reason = found ? name + " is \"" + text + "\", it must be " + element.reader.expects
                        : name + " is missing"};
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
        return Problem{failed("into_element", name), document.line_of(name),
                       "the element here must be " + in_brackets(name)};
    }
    if (Fault fault = read()) {
        return fault;
    }
    return document.outof_element()
               ? Fault{}
               : Problem{failed("outof_element", name), document.line_of(name), ""};
}

// `line`: where the item begins in its list.
Fault read_storage(const std::string& item, int line, Storage& storage) {
    Xml document;
    if (!document.set_document(item.c_str())) {
        return Problem{failed("set_document", item), line, document.failure().reason};
    }
    Fault fault = read_inside(document, "item", [&] {
        // Without an element, or without a boolean in it, the storage is not shown.
        std::string show;
        document.get_element("show", show);
        read_value(show, storage.show);
        return read_elements(document, storage_elements, storage);
    });
    if (fault) {
        fault->line += line - 1;
    }
    return fault;
}

Fault check_ports(const Xml& document, const Settings& settings) {
    if (settings.transmit_port != settings.command_port) {
        return {};
    }
    const std::string port = std::to_string(settings.command_port);
    return Problem{"transmit server ports are equal", document.line_of("command_port"),
                   "<port> and <command_port> are both " + port};
}

}  // namespace

Fault read_settings(Xml& document, Settings& settings) {
    return read_inside(document, "transmit_server", [&] {
        Fault fault = read_elements(document, settings_elements, settings);
        return fault ? fault : check_ports(document, settings);
    });
}

Fault read_storages(Xml& document, StorageTable& storages) {
    return read_inside(document, "storages", [&]() -> Fault {
        std::string item;
        while (document.get_sub_document(item)) {
            Storage storage;
            const int line = document.sub_document_line();
            if (Fault fault = read_storage(item, line, storage)) {
                return fault;
            }
            if (!storages.emplace(storage.id, storage).second) {
                const std::string id = std::to_string(storage.id);
                return Problem{"storage id is used twice", line,
                               "another storage has the number " + id + " already"};
            }
        }
        return {};
    });
}

}  // namespace configuration

bool NorvaneTransmitService::parse_configuration() {
    const OperationLog log = operation_log();
    const auto fail = [&](const std::string& filename, int line, const std::string& reason) {
        const std::string place = line == 0 ? filename : filename + ":" + std::to_string(line);
        failure_ = place + ": " + reason;
        log.error("%s", failure_.c_str());
        return false;
    };
    const auto load = [&](Kestin::Base::Xml& document, const std::string& filename) {
        if (document.load(filename.c_str())) {
            return true;
        }
        log.critical("load failed, filename:{%s}", filename.c_str());
        const auto& [line, reason] = document.failure();
        return fail(filename.empty() ? "<storage_configuration>" : filename, line, reason);
    };
    const auto check = [&](const std::string& filename, const configuration::Fault& fault) {
        if (!fault) {
            return true;
        }
        log.error("%s", fault->text.c_str());
        return fail(filename, fault->line, fault->reason);
    };
    const std::string settings_file = root_directory_ + "cfg/config.xml";
    const std::string& storages_file = settings_.storage_configuration;
    Kestin::Base::Xml settings;
    Kestin::Base::Xml storages;
    if (!(load(settings, settings_file) &&
          check(settings_file, configuration::read_settings(settings, settings_)) &&
          load(storages, storages_file) &&
          check(storages_file, configuration::read_storages(storages, storages_)))) {
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
