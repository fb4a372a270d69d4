#include "kestin_base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace Kestin::Base {
namespace {

// So that opening a pipe or a terminal has no effect and doesn't wait; regular files take no
// notice of either.
constexpr int harmless = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool is_regular(int descriptor) {
    struct stat facts {};
    return ::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

// How many bytes a file can hold behind the position; the system refuses to be asked for more.
std::uint64_t room_behind(std::int64_t position) {
    return static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - position);
}

}  // namespace

File::~File() {
    close();
}

bool File::open(const char* path, bool write, bool /*reserved*/) {
    close();
    const int mode = write ? O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW : O_RDONLY;
    descriptor_ = ::open(path, mode | harmless, 0666);
    position_ = 0;
    at_end_ = false;
    if (is_open() && !is_regular(descriptor_)) {
        close();
    }
    return is_open();
}

bool File::is_open() const {
    return descriptor_ >= 0;
}

bool File::is_eof() const {
    return at_end_;
}

bool File::read(char* buffer, std::uint64_t size, std::uint64_t& got) {
    got = 0;
    while (got < size) {
        const ssize_t count = ::pread(descriptor_, buffer + got,
                                      std::min(size - got, room_behind(position_)), position_);
        if (count == 0) {
            at_end_ = true;
            return true;
        }
        if (count > 0) {
            got += static_cast<std::uint64_t>(count);
            position_ += count;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return is_open();
}

bool File::write(const char* data, std::uint64_t size) {
    while (size > 0) {
        const ssize_t count = ::write(descriptor_, data, size);
        if (count > 0) {
            data += count;
            size -= static_cast<std::uint64_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return false;
        }
    }
    return is_open();
}

bool File::seek(std::int64_t position) {
    if (!is_open() || position < 0) {
        return false;
    }
    position_ = position;
    at_end_ = false;
    return true;
}

bool File::close() {
    if (!is_open()) {
        return true;
    }
    // After EINTR the descriptor is gone all the same (close(2)), so it is never closed twice.
    const bool closed = ::close(descriptor_) == 0 || errno == EINTR;
    descriptor_ = -1;
    at_end_ = false;
    return closed;
}

}  // namespace Kestin::Base
