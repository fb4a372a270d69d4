#include "src/main/root_directory.h"

#include <filesystem>
#include <system_error>

#include "kestin_base/path.h"
#include "kestin_base/strings.h"
#include "src/main/console.h"

namespace {

std::string executable_path(const char* path) {
    std::string started_as = path != nullptr ? path : "";
    if (started_as.find('/') != std::string::npos) {
        return started_as;
    }
    std::error_code unknown;
    std::string told = std::filesystem::read_symlink("/proc/self/exe", unknown);
    return unknown ? started_as : told;
}

}  // namespace

bool get_root_directory(const char* path, std::string& root) {
    using namespace Kestin::Base;
    if (!kestin_extract_directory(executable_path(path).c_str(), root, true)) {
        print_line("extract directory failed");
        return false;
    }
    if (!kestin_set_current_work_directory(ansi_to_utf8(root))) {
        print_line("set current work directory failed");
        return false;
    }
    if (!kestin_get_current_work_directory(root)) {
        print_line("get current work directory failed");
        return false;
    }
    return true;
}
