#include "client/cli/names.h"

#include <filesystem>

#include "client/remote_tree.h"

namespace transmit::cli {
namespace {

std::string last_component(std::string_view path, std::string_view separators) {
    const auto end = path.find_last_not_of(separators);
    if (end == std::string_view::npos) {
        return {};
    }
    path = path.substr(0, end + 1);
    const auto separator = path.find_last_of(separators);
    return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

}  // namespace

std::string remote_name(std::string_view path) {
    std::string name = last_component(path, "/\\");
    return is_plain_name(name) ? name : std::string();
}

std::string local_name(std::string_view path) {
    std::string name = last_component(path, "/");
    return is_plain_name(name) ? name : std::string();
}

std::string joined(std::string folder, std::string_view name) {
    if (!folder.empty() && !ends_in_separator(folder)) {
        folder += '/';
    }
    return folder.append(name);
}

bool ends_in_separator(std::string_view path) {
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

bool is_local_folder(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

}  // namespace transmit::cli
