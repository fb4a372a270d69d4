#include "tests/system/stored_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "tests/support/files.h"

namespace stored_file {

void put(const std::string& path, std::string_view bytes, std::int64_t time) {
    support::write_file(path, bytes);
    const std::array<timespec, 2> times{timespec{time, 0}, timespec{time, 0}};
    if (utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

std::int64_t time_of(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return status.st_mtim.tv_sec;
}

bool exists(const std::string& path) {
    return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

}  // namespace stored_file
