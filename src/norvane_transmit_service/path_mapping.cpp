#include "src/norvane_transmit_service/path_mapping.h"

#include <cctype>
#include <vector>

#include "kestin_base/path.h"
#include "kestin_base/strings.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

constexpr const char* separators = "\\/";

// A grouping folder bears the lowest id of its users.
constexpr std::uint32_t users_per_group = 500;

std::vector<std::string> accepted_components(const std::string& path) {
    std::vector<std::string> accepted;
    Kestin::Base::StringSplitter splitter(path, "", separators);
    for (std::string component; !splitter.eof();) {
        splitter >> component;
        if (component == "..") {
            if (!accepted.empty()) {
                accepted.pop_back();
            }
        } else if (!component.empty() && component != ".") {
            accepted.push_back(component);
        }
    }
    return accepted;
}

bool ends_in_separator(const std::string& path) {
    const auto last = path.find_last_not_of(Kestin::Base::blank_characters);
    return last != std::string::npos && (path[last] == '/' || path[last] == '\\');
}

// Ids above 2147483647 are written as the negative numbers of the same bits.
std::string user_path(const Settings& settings, std::uint32_t user_id, const std::string& path) {
    const auto folder = [](std::uint32_t id) {
        return '/' + std::to_string(static_cast<std::int32_t>(id));
    };
    if (!settings.use_user_id) {
        return '/' + path;
    }
    const std::string user = folder(user_id) + '/' + path;
    return settings.group_by_user_id ? folder(user_id / users_per_group * users_per_group) + user
                                     : user;
}

}  // namespace

std::string clean_path(const std::string& in) {
    const std::vector<std::string> components = accepted_components(in);
    if (components.empty()) {
        return "/";
    }
    std::string path;
    for (const std::string& component : components) {
        path += '/' + component;
    }
    return ends_in_separator(in) ? path + '/' : path;
}

bool NorvaneTransmitService::is_storage_valid(std::uint32_t storage_id) const {
    return storages_.contains(storage_id);
}

std::string NorvaneTransmitService::make_transmit_path(std::uint32_t storage_id,
                                                       std::uint32_t user_id, const char* path,
                                                       bool lower) const {
    const auto storage = storages_.find(storage_id);
    if (storage == storages_.end()) {
        operation_log().error("make transmit path failure, invalid storage id: %d", storage_id);
        return {};
    }
    const std::string cleaned = clean_path(path);
    const std::string relative =
        user_id == 0 ? '/' + cleaned : user_path(settings_, user_id, cleaned);
    std::string formatted;
    format_pathname(storage->second.directory + relative, formatted, lower);
    return formatted;
}

void NorvaneTransmitService::format_pathname(const std::string& in, std::string& out,
                                             bool lower) const {
    Kestin::Base::kestin_absolute_pathname_format_strictly(in, out, true);
    if (settings_.pathname_use_lower && lower) {
        for (char& byte : out) {
            byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
        }
    }
}
