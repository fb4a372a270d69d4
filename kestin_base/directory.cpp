#include "kestin_base/directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace Kestin::Base {

Directory::~Directory() {
    close();
}

bool Directory::open(const char* path) {
    close();
    stream_ = ::opendir(path);
    is_broken_ = false;
    prefix_ = path;
    if (!prefix_.ends_with('/')) {
        prefix_ += '/';
    }
    return stream_ != nullptr;
}

bool Directory::read() {
    if (stream_ == nullptr) {
        return false;
    }
    do {
        errno = 0;
        const dirent* entry = ::readdir(stream_);
        if (entry == nullptr) {
            is_broken_ = errno != 0;
            return false;
        }
        short_name_ = static_cast<const char*>(entry->d_name);
    } while (short_name_ == "." || short_name_ == "..");
    name_ = prefix_ + short_name_;
    examine();
    return true;
}

void Directory::examine() {
    struct stat facts {};
    ::fstatat(::dirfd(stream_), short_name_.c_str(), &facts, 0);
    is_directory_ = S_ISDIR(facts.st_mode);
    size_ = facts.st_size;
    time_ = facts.st_mtim.tv_sec;
}

const std::string& Directory::sub_path_name() const {
    return name_;
}
const std::string& Directory::sub_path_short_name() const {
    return short_name_;
}
bool Directory::sub_path_is_directory() const {
    return is_directory_;
}
std::int64_t Directory::sub_path_size() const {
    return size_;
}
std::int64_t Directory::sub_path_time() const {
    return time_;
}

void Directory::close() {
    if (stream_ != nullptr) {
        ::closedir(stream_);
        stream_ = nullptr;
    }
}

}  // namespace Kestin::Base
