#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "kestin_base/uncopy.h"

// A folder of its own for one test, gone with the object.
class TemporaryFolder : private Kestin::Base::Uncopy {
  public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestin_XXXXXX").native();
        path_ = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + '/' + std::string(name); }

    // Writes a file below the folder and gives its full path.
    std::string with_file(std::string_view name, std::string_view bytes) const {
        const std::string path = *this / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

  private:
    std::string path_;
};

inline std::string bytes_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
