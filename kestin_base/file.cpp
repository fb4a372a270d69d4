#include "kestin_base/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "kestin_base/detail/new_times.h"

namespace Kestin::Base {
namespace {

// So that opening a pipe or a terminal has no effect and doesn't wait; regular files take no
// notice of either.
constexpr int harmless = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

std::int64_t size_of(int descriptor) {
    struct stat facts {};
    return ::fstat(descriptor, &facts) == 0 ? facts.st_size : -1;
}

// Takes the first `length` bytes off the front of the pieces from `first` on; which one is the
// first now.
std::size_t drop_front(std::span<iovec> pieces, std::size_t first, std::size_t length) {
    while (first < pieces.size() && length >= pieces[first].iov_len) {
        length -= pieces[first++].iov_len;
    }
    if (length > 0) {
        iovec& piece = pieces[first];
        piece.iov_base = static_cast<std::uint8_t*>(piece.iov_base) + length;
        piece.iov_len -= length;
    }
    return first;
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
    struct stat facts {};
    if (open_as(path, write ? O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW : O_RDONLY) &&
        (::fstat(descriptor_, &facts) != 0 || !S_ISREG(facts.st_mode))) {
        close();
    }
    size_at_open_ = facts.st_size;
    return is_open();
}

// What is made here is a regular file without bytes.
bool File::create(const char* path) {
    return open_as(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL);
}

bool File::open_as(const char* path, int mode) {
    close();
    descriptor_ = ::open(path, mode | harmless, 0666);
    size_at_open_ = 0;
    position_ = 0;
    at_end_ = false;
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
    for (bool ends_here = false; got < size && !ends_here;) {
        const std::uint64_t wanted = std::min(size - got, room_behind(position_));
        const ssize_t count = ::pread(descriptor_, buffer + got, wanted, position_);
        if (count >= 0) {
            got += static_cast<std::uint64_t>(count);
            position_ += count;
            // Less than was wanted, up to where the file ended before: it ends there still.
            const bool is_short = static_cast<std::uint64_t>(count) < wanted;
            ends_here = count == 0 || (is_short && position_ == size_at_open_);
            at_end_ = at_end_ || ends_here;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return is_open();
}

bool File::write(const char* data, std::uint64_t size) {
    const Piece piece(reinterpret_cast<const std::uint8_t*>(data), size);
    return is_open() && write_pieces({&piece, 1}) == 1;
}

std::size_t File::write_pieces(std::span<const Piece> pieces) {
    std::array<iovec, most_pieces> slots{};
    const std::size_t count = std::min(pieces.size(), most_pieces);
    for (std::size_t index = 0; index < count; ++index) {
        slots[index] = {const_cast<std::uint8_t*>(pieces[index].data()), pieces[index].size()};
    }
    const std::span<iovec> all = std::span(slots).first(count);
    for (std::size_t first = drop_front(all, 0, 0); first < count;) {
        const ssize_t written = ::writev(descriptor_, &all[first], static_cast<int>(count - first));
        if (written > 0) {
            first = drop_front(all, first, static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return first;
        }
    }
    return count;
}

void File::reserve(std::uint64_t length) {
    const std::int64_t size = size_of(descriptor_);
    if (size < 0 || length > room_behind(size)) {
        return;
    }
    const auto room = static_cast<std::int64_t>(length);
    if (::fallocate(descriptor_, FALLOC_FL_KEEP_SIZE, size, room) == 0) {
        reserve_end_ = size + room;
    }
}

// Setting a file to the length that it has frees what was set aside behind it.
void File::give_back_reserve() {
    if (reserve_end_ > 0) {
        const std::int64_t size = size_of(descriptor_);
        if (size >= 0 && size < reserve_end_) {
            [[maybe_unused]] const int result = ::ftruncate(descriptor_, size);
        }
        reserve_end_ = 0;
    }
}

// Giving back what was set aside sets the time as a write does.
bool File::set_time(std::int64_t time) {
    give_back_reserve();
    struct stat facts {};
    return ::futimens(descriptor_, detail::new_times(time).data()) == 0 &&
           ::fstat(descriptor_, &facts) == 0 && facts.st_mtim.tv_sec == time;
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
    give_back_reserve();
    // After EINTR the descriptor is gone all the same (close(2)), so it is never closed twice.
    const bool closed = ::close(descriptor_) == 0 || errno == EINTR;
    descriptor_ = -1;
    at_end_ = false;
    return closed;
}

}  // namespace Kestin::Base
