#include "tests/support/folder_state.h"

#include <sys/stat.h>

#include <filesystem>

#include "tests/support/files.h"

namespace support {

namespace {

std::string time_text(const timespec& time) {
    return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

std::string state_of_entry(const std::string& path) {
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) != 0) {
        return "gone";
    }
    std::string state = std::to_string(facts.st_mode);
    if (S_ISREG(facts.st_mode)) {
        state += " " + time_text(facts.st_mtim) + " " + sha256_of_file(path);
    } else if (S_ISLNK(facts.st_mode)) {
        state += " " + std::filesystem::read_symlink(path).string();
    }
    return state;
}

}  // namespace

FolderState state_of(const std::string& folder, const std::set<std::string>& except) {
    FolderState state;
    std::filesystem::recursive_directory_iterator entries(folder);
    for (const auto& entry : entries) {
        const std::string name = entry.path().lexically_relative(folder);
        if (except.contains(name)) {
            entries.disable_recursion_pending();
        } else {
            state.emplace(name, state_of_entry(entry.path()));
        }
    }
    return state;
}

}  // namespace support
