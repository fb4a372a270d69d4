#pragma once

#include <dirent.h>

#include <cstdint>
#include <string>

#include "kestin_base/uncopy.h"

namespace Kestin::Base {

// One pass over one directory: its entries but for "." and "..", in the order of the system. One
// owner at a time. Each `read` costs one stat relative to the open directory.
class Directory : private Uncopy {
  public:
    Directory() = default;
    ~Directory();

    bool open(const char* path);

    // Moves to the next entry; false when there is none, or when the system can't tell.
    bool read();
    // Whether entries may be missing behind the last one.
    bool is_broken() const { return is_broken_; }

    // Of the present entry: its full path, its name alone, and, links followed, whether it is a
    // directory, its size and its time (as file_get_size and file_get_time tell them; 0 where they
    // can't be told).
    const std::string& sub_path_name() const;
    const std::string& sub_path_short_name() const;
    bool sub_path_is_directory() const;
    std::int64_t sub_path_size() const;
    std::int64_t sub_path_time() const;

    void close();

  private:
    void examine();

    DIR* stream_ = nullptr;
    bool is_broken_ = false;
    std::string prefix_;
    std::string name_;
    std::string short_name_;
    bool is_directory_ = false;
    std::int64_t size_ = 0;
    std::int64_t time_ = 0;
};

}  // namespace Kestin::Base
