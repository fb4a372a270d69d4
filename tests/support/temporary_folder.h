#pragma once

#include <string>

namespace support {

// A fresh folder below the system's folder for temporary files, removed with all its contents when
// the object goes.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Absolute, with "/" at its end, so that relative paths can be appended to it.
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace support
