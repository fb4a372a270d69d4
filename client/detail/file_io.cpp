#include "client/detail/file_io.h"

#include <unistd.h>

#include <cerrno>

namespace transmit::detail {

ssize_t read_at(int descriptor, void* data, std::size_t size, std::int64_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(descriptor, static_cast<char*>(data) + done, size - done,
                                    offset + static_cast<std::int64_t>(done));
        if (count == 0) {
            break;
        }
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(done);
}

bool write_at(int descriptor, const char* data, std::size_t size, std::int64_t offset) {
    while (size > 0) {
        const ssize_t written = pwrite(descriptor, data, size, offset);
        if (written >= 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
            offset += written;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace transmit::detail
