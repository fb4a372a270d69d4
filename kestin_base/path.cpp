#include "kestin_base/path.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace Kestin::Base {
namespace {

// Puts the components of `text` behind `path`, which is absolute and has no separator at its end:
// the root is the empty text.
void append_components(std::string_view text, std::string& path) {
    while (!text.empty()) {
        const std::string_view component = text.substr(0, text.find('/'));
        text.remove_prefix(std::min(component.size() + 1, text.size()));
        if (component == "..") {
            path.erase(std::min(path.rfind('/'), path.size()));
        } else if (!component.empty() && component != ".") {
            path += '/';
            path += component;
        }
    }
}

}  // namespace

bool kestin_extract_directory(const char* path, std::string& directory, bool /*strictly*/) {
    if (path == nullptr || *path == '\0') {
        return false;
    }
    const std::string_view text = path;
    const auto separator = text.rfind('/');
    if (separator == std::string_view::npos) {
        directory = ".";
        return true;
    }
    const auto last = text.find_last_not_of('/', separator);
    directory = last == std::string_view::npos ? "/" : text.substr(0, last + 1);
    return true;
}

bool kestin_get_current_work_directory(std::string& directory) {
    std::error_code error;
    const std::filesystem::path current = std::filesystem::current_path(error);
    if (error) {
        return false;
    }
    directory = current.native();
    if (directory.back() != '/') {
        directory += '/';
    }
    return true;
}

bool kestin_set_current_work_directory(const std::string& directory) {
    std::error_code error;
    std::filesystem::current_path(directory, error);
    return !error;
}

bool kestin_absolute_pathname_format_strictly(const std::string& in, std::string& out,
                                              bool /*strictly*/) {
    std::string path;
    path.reserve(in.size() + 1);
    if (!in.starts_with('/')) {
        std::string base;
        if (!kestin_get_current_work_directory(base)) {
            out.clear();
            return false;
        }
        append_components(base, path);
    }
    append_components(in, path);
    if (path.empty()) {
        path = '/';
    }
    out = std::move(path);
    return true;
}

}  // namespace Kestin::Base
