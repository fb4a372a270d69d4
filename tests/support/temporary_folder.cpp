#include "tests/support/temporary_folder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace support {

TemporaryFolder::TemporaryFolder()
    : path_(std::filesystem::temp_directory_path() / "transmit-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
    path_ += '/';
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace support
