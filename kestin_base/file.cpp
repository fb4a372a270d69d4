#include "kestin_base/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "kestin_base/detail/facts.h"
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

bool is_file_at(const struct stat& file, const char* path) {
    struct stat found {};
    return detail::examine_link(path, found) && detail::is_same(file, found);
}

bool retry_on_signal(int (*call)(int), int descriptor) {
    int result = 0;
    do {
        result = call(descriptor);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

std::uint64_t free_room(int descriptor) {
    struct statfs facts {};
    return ::fstatfs(descriptor, &facts) == 0 ? static_cast<std::uint64_t>(facts.f_bavail) *
                                                    static_cast<std::uint64_t>(facts.f_bsize)
                                              : 0;
}

}  // namespace

File::~File() {
    close();
}

bool File::open(const char* path, bool write, bool /*reserved*/) {
    return open_regular(path, write ? O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW : O_RDONLY);
}

bool File::open_existing(const char* path) {
    return open_regular(path, O_WRONLY | O_APPEND | O_NOFOLLOW);
}

// What is made here is a regular file without bytes.
bool File::create(const char* path) {
    return open_as(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL);
}

bool File::open_regular(const char* path, int mode) {
    if (open_as(path, mode)) {
        const PathFacts facts = look();
        size_at_open_ = facts.size;
        if (!facts.is_regular) {
            close();
            errno = facts.is_directory ? EISDIR : EINVAL;
        }
    }
    return is_open();
}

// Retries once what a shared file system can report although it holds no longer: that a file which
// another machine has just made exists already (without O_EXCL), or that a handle is stale.
bool File::open_as(const char* path, int mode) {
    close();
    descriptor_ = ::open(path, mode | harmless, 0666);
    const bool is_passing = errno == ESTALE || (errno == EEXIST && (mode & O_EXCL) == 0);
    if (descriptor_ < 0 && is_passing) {
        descriptor_ = ::open(path, mode | harmless, 0666);
    }
    size_at_open_ = 0;
    position_ = 0;
    at_end_ = false;
    return is_open();
}

File::Lock File::lock() {
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) {
        return Lock::taken;
    }
    return errno == EWOULDBLOCK ? Lock::held : Lock::unsupported;
}

bool File::is_at(const char* path) const {
    struct stat mine {};
    return ::fstat(descriptor_, &mine) == 0 && is_file_at(mine, path);
}

bool File::is_at(const char* path, std::int64_t size) const {
    struct stat mine {};
    return ::fstat(descriptor_, &mine) == 0 && mine.st_size == size && is_file_at(mine, path);
}

PathFacts File::look() const {
    struct stat facts {};
    return ::fstat(descriptor_, &facts) == 0 ? detail::facts_of(facts) : PathFacts{};
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

bool File::reserve(std::uint64_t length) {
    const std::int64_t size = size_of(descriptor_);
    const std::uint64_t free = free_room(descriptor_);
    if (size < 0 || length > room_behind(size) || free < reserve_margin ||
        free - reserve_margin < length) {
        return false;
    }
    const auto room = static_cast<std::int64_t>(length);
    const bool is_reserved = ::fallocate(descriptor_, FALLOC_FL_KEEP_SIZE, size, room) == 0;
    // A call that fails may have set aside a part.
    if (is_reserved || errno == ENOSPC) {
        reserve_end_ = size + room;
    }
    return is_reserved;
}

void File::start_write_back(std::int64_t begin, std::int64_t end) const {
    [[maybe_unused]] const int result =
        ::sync_file_range(descriptor_, begin, end - begin, SYNC_FILE_RANGE_WRITE);
}

// Each close of a descriptor has the file system report, not only the last one (close(2)).
bool File::flush() const {
    const int duplicate = ::fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);
    return duplicate >= 0 && (::close(duplicate) == 0 || errno == EINTR);
}

bool File::sync() {
    return retry_on_signal(::fdatasync, descriptor_) && give_back_reserve();
}

bool File::sync_attributes() const {
    return retry_on_signal(::fsync, descriptor_);
}

// Setting a file to the length that it has frees what was set aside behind it. Called when the
// bytes are on the disk: the call makes ext4 commit the length, and of bytes that it hasn't written
// by then zeros would remain after a power cut.
bool File::give_back_reserve() {
    const std::int64_t size = reserve_end_ > 0 ? size_of(descriptor_) : 0;
    const bool has_rest = size >= 0 && size < reserve_end_;
    reserve_end_ = 0;
    return !has_rest || ::ftruncate(descriptor_, size) == 0;
}

bool File::truncate(std::int64_t size) const {
    return ::ftruncate(descriptor_, size) == 0;
}

bool File::set_time(std::int64_t time) const {
    struct stat facts {};
    return ::futimens(descriptor_, detail::new_times(time).data()) == 0 &&
           ::fstat(descriptor_, &facts) == 0 && detail::is_new_time(facts, time);
}

bool File::set_attribute(const char* name, const std::string& value) const {
    return ::fsetxattr(descriptor_, name, value.data(), value.size(), 0) == 0;
}

bool File::get_attribute(const char* name, std::string& value) const {
    std::array<char, longest_attribute> bytes{};
    const ssize_t length = ::fgetxattr(descriptor_, name, bytes.data(), bytes.size());
    if (length >= 0) {
        value.assign(bytes.data(), static_cast<std::size_t>(length));
    }
    return length >= 0;
}

bool File::remove_attribute(const char* name) const {
    return ::fremovexattr(descriptor_, name) == 0;
}

bool File::seek(std::int64_t position) {
    if (!is_open() || position < 0) {
        errno = EINVAL;
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
    const bool has_reserve = reserve_end_ > 0 && size_of(descriptor_) < reserve_end_;
    const bool is_stored = !has_reserve || sync();
    reserve_end_ = 0;
    // After EINTR the descriptor is gone all the same (close(2)), so it is never closed twice.
    const bool is_closed = ::close(descriptor_) == 0 || errno == EINTR;
    descriptor_ = -1;
    at_end_ = false;
    return is_stored && is_closed;
}

}  // namespace Kestin::Base
