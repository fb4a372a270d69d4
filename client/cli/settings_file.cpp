#include "client/cli/settings_file.h"

#include <ini.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <system_error>

namespace transmit::cli {
namespace {

// The variable's value with `below` behind it, if it holds an absolute path.
std::string folder_of(const char* variable, const char* below) {
    const char* const value = std::getenv(variable);
    return value && *value == '/' ? std::string(value) + below : std::string();
}

// inih's handler: 0 makes the line a fault.
int take(void* user, const char* /*section*/, const char* name, const char* value) {
    static_cast<std::vector<Setting>*>(user)->push_back({name, value});
    return 1;
}

}  // namespace

std::string settings_path() {
    std::string folder = folder_of("XDG_CONFIG_HOME", "");
    if (folder.empty()) {
        folder = folder_of("HOME", "/.config");
    }
    return folder.empty() ? folder : folder + "/transmit/config.ini";
}

Result<std::vector<Setting>> read_settings(const std::string& path) {
    std::vector<Setting> settings;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                               &std::fclose);
    if (!file && (errno == ENOENT || errno == ENOTDIR)) {
        return settings;
    }
    if (!file) {
        return Error{ErrorKind::local_file, 0,
                     path + ": " + std::generic_category().message(errno)};
    }
    if (const int line = ini_parse_file(file.get(), &take, &settings); line != 0) {
        return Error{ErrorKind::invalid_request, 0,
                     path + ": line " + std::to_string(line) + " is no \"name = value\""};
    }
    return settings;
}

}  // namespace transmit::cli
