#include "src/main/root_directory.h"

#include <cerrno>
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

bool fail(const char* text, const std::string& reason) {
    print_line(text);
    print_failure(reason);
    return false;
}

}  // namespace

bool get_root_directory(const char* path, std::string& root) {
    using namespace Kestin::Base;
    const std::string program = executable_path(path);
    if (!kestin_extract_directory(program.c_str(), root, true)) {
        return fail("extract directory failed", "no folder in \"" + program + "\"");
    }
    if (!kestin_set_current_work_directory(ansi_to_utf8(root))) {
        return fail("set current work directory failed", root + ": " + kestin_error_text(errno));
    }
    if (!kestin_get_current_work_directory(root)) {
        return fail("get current work directory failed",
                    "working directory: " + kestin_error_text(errno));
    }
    return true;
}
