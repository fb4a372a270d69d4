#include "tests/support/server_root.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/support/raw_socket.h"

namespace support {

namespace {

constexpr const char* built_program = TRANSMIT_DIST "/transmit_server";
constexpr const char* built_settings = TRANSMIT_DIST "/cfg";
constexpr const char* built_pages = TRANSMIT_DIST "/www";

void copy_folder(const std::string& from, const std::string& to) {
    if (std::filesystem::exists(from)) {
        std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
    }
}

std::uint16_t chosen_or_free(std::uint16_t port) {
    return port != 0 ? port : free_port();
}

std::string element(const std::string& name, const std::string& text) {
    return "<" + name + ">" + text + "</" + name + ">\n";
}

std::string word(bool value) {
    return value ? "true" : "false";
}

std::string storage_list(const std::vector<Storage>& storages) {
    std::string items;
    for (const Storage& storage : storages) {
        items += element("item", element("id", std::to_string(storage.id)) +
                                     element("name", storage.name) +
                                     element("show", word(storage.show)) +
                                     element("directory", storage.directory) + storage.further);
    }
    return element("storages", items);
}

std::string configuration(const ServerSettings& settings) {
    return element(
        "transmit_server",
        element("host", "0.0.0.0") + element("port", std::to_string(settings.port)) +
            element("command_port", std::to_string(settings.command_port)) +
            element("use_user_id", word(settings.use_user_id)) +
            element("group_by_user_id", word(settings.group_by_user_id)) +
            element("pathname_use_lower", word(settings.pathname_use_lower)) +
            element("transmit_temp_file_suffix", settings.temp_file_suffix) +
            element("transmit_info_update_interval", std::to_string(settings.update_interval)) +
            element("storage_configuration", "cfg/storage.xml") + settings.further);
}

}  // namespace

ServerRoot::ServerRoot(const ServerSettings& settings) : settings_(settings) {
    settings_.port = chosen_or_free(settings.port);
    settings_.command_port = chosen_or_free(settings.command_port);
    link_or_copy(built_program, program());
    copy_folder(built_settings, path() + "cfg");
    copy_folder(built_pages, path() + "www");
    write_settings();
    for (const Storage& storage : settings_.storages) {
        std::filesystem::create_directories(storage_folder(storage.id));
    }
}

void ServerRoot::write_settings() const {
    write_file(path() + "cfg/config.xml", configuration(settings_));
    write_file(path() + "cfg/storage.xml", storage_list(settings_.storages));
}

std::string ServerRoot::storage_folder(std::uint32_t id) const {
    for (const Storage& storage : settings_.storages) {
        if (storage.id == id) {
            return std::filesystem::path(path()) / storage.directory / "";
        }
    }
    throw std::out_of_range("no storage " + std::to_string(id));
}

std::string ServerRoot::run_log() const {
    return read_file(path() + "log/run.log");
}
std::string ServerRoot::debug_log() const {
    return read_file(path() + "log/debug.log");
}
std::string ServerRoot::record() const {
    return read_file(path() + "log/record.log");
}

}  // namespace support
