#include "client/detail/part_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <utility>

#include "client/detail/local_error.h"
#include "client/detail/sha256.h"

namespace transmit::detail {
namespace {

constexpr const char* part_suffix = ".part";

bool is_directory(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// True while the path still leads to the open file: another process may have given it its name.
bool leads_to(const std::string& path, const FileDescriptor& descriptor) {
    struct stat by_path {};
    struct stat by_descriptor {};
    return stat(path.c_str(), &by_path) == 0 && fstat(descriptor.get(), &by_descriptor) == 0 &&
           by_path.st_dev == by_descriptor.st_dev && by_path.st_ino == by_descriptor.st_ino;
}

Result<FileDescriptor> open_locked(const std::string& path) {
    while (true) {
        FileDescriptor descriptor(
            open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
        if (!descriptor.is_open()) {
            return local_error(path, "opened");
        }
        if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
            return Error{ErrorKind::local_file, 0, path + " is being written by another download"};
        }
        if (leads_to(path, descriptor)) {
            return descriptor;
        }
    }
}

// The lines of a part's memory have fixed widths, so that one is brought up to date in its place.
constexpr std::size_t number_width = 20;

std::string line_of(std::initializer_list<std::int64_t> numbers) {
    std::ostringstream line;
    for (const std::int64_t number : numbers) {
        line << std::setw(number_width) << number << ' ';
    }
    line << '\n';
    return line.str();
}

std::string source_line(const FileStamp& source) {
    return line_of({source.size, source.time});
}

std::string segment_line(const Segment& segment) {
    return line_of({segment.begin, segment.position, segment.end});
}

// True if the segments lie one behind the other and are all of a file of this size.
bool cover(std::span<const Segment> segments, std::int64_t size) {
    std::int64_t end = 0;
    for (const Segment& segment : segments) {
        if (segment.begin != end || segment.position < segment.begin ||
            segment.position > segment.end) {
            return false;
        }
        end = segment.end;
    }
    return !segments.empty() && end == size;
}

// Some file systems report a failed write only when the file is closed. A second descriptor of the
// same file is closed for that, since closing the first would give up the lock.
bool closes_well(const FileDescriptor& descriptor) {
    const int copy = fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0);
    return copy >= 0 && close(copy) == 0;
}

bool write_all(int descriptor, const char* data, std::size_t size, std::int64_t offset) {
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

// A time that the file system can't hold is no reason to withhold the file.
Result<void> give_name(const FileDescriptor& descriptor, const std::string& part,
                       const std::string& target, std::int64_t time) {
    const timespec times[2] = {{0, UTIME_NOW}, {time, 0}};
    futimens(descriptor.get(), times);
    if (!closes_well(descriptor)) {
        return local_error(part, "written");
    }
    if (std::rename(part.c_str(), target.c_str()) != 0) {
        return local_error(part, "renamed to " + target);
    }
    return {};
}

}  // namespace

Result<PartFile> PartFile::open(const std::string& target) {
    if (is_directory(target)) {
        return local_error(target, "replaced", EISDIR);
    }
    auto descriptor = open_locked(target + part_suffix);
    if (!descriptor) {
        return descriptor.error();
    }
    return PartFile(*std::move(descriptor), target);
}

bool PartFile::is_begun(const std::string& target) {
    return access(target.c_str(), F_OK) == 0 || access((target + part_suffix).c_str(), F_OK) == 0;
}

PartFile::PartFile(FileDescriptor descriptor, std::string target)
    : descriptor_(std::move(descriptor)),
      target_(std::move(target)),
      part_(target_ + part_suffix),
      info_(target_ + ".part.info") {
}

Result<void> PartFile::prepare(const FileStamp& source) {
    if (!segments_.empty() && source == source_) {
        return {};
    }
    if (recall(source)) {
        source_ = source;
        return {};
    }
    return begin(source);
}

// The file may be shorter than its memory says, after a crash of the system or by another's hand.
bool PartFile::recall(const FileStamp& source) {
    std::ifstream file(info_, std::ios::binary);
    FileStamp remembered;
    file >> remembered.size >> remembered.time;
    struct stat status {};
    if (!file || remembered != source || fstat(descriptor_.get(), &status) != 0) {
        return false;
    }
    std::vector<Segment> segments;
    for (Segment segment{}; file >> segment.begin >> segment.position >> segment.end;) {
        segments.push_back(segment);
    }
    if (!cover(segments, source.size)) {
        return false;
    }
    for (Segment& segment : segments) {
        segment.position =
            std::clamp<std::int64_t>(status.st_size, segment.begin, segment.position);
    }
    info_descriptor_ = FileDescriptor(::open(info_.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!info_descriptor_.is_open()) {
        return false;
    }
    segments_ = std::move(segments);
    return true;
}

// The part is emptied before its memory changes: at no moment do bytes of one version stand beside
// the memory of another.
Result<void> PartFile::begin(const FileStamp& source) {
    if (ftruncate(descriptor_.get(), 0) != 0) {
        return local_error(part_, "written");
    }
    source_ = source;
    segments_ = {{0, 0, source.size}};
    info_descriptor_ = FileDescriptor(
        ::open(info_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
    return remember();
}

Result<void> PartFile::split(std::int64_t count) {
    const auto [begin, position, end] = segments_.front();
    const std::int64_t share = (end - position) / count;
    segments_ = {{begin, position, position + share}};
    for (std::int64_t index = 1; index < count; ++index) {
        const std::int64_t start = position + index * share;
        segments_.push_back({start, start, index + 1 == count ? end : start + share});
    }
    return remember();
}

std::int64_t PartFile::stored() const {
    std::int64_t size = 0;
    for (const Segment& segment : segments_) {
        size += segment.position - segment.begin;
    }
    return size;
}

// With one write: whenever the process ends, the memory is whole.
Result<void> PartFile::remember() const {
    std::string text = source_line(source_);
    for (const Segment& segment : segments_) {
        text += segment_line(segment);
    }
    return write_info(text, 0);
}

Result<void> PartFile::remember(std::size_t segment) const {
    const std::string line = segment_line(segments_[segment]);
    return write_info(line, source_line(source_).size() + segment * line.size());
}

Result<void> PartFile::write_info(std::string_view text, std::size_t offset) const {
    if (!info_descriptor_.is_open() || !write_all(info_descriptor_.get(), text.data(), text.size(),
                                                  static_cast<std::int64_t>(offset))) {
        return local_error(info_, "written");
    }
    return {};
}

Result<void> PartFile::append(std::size_t index, std::span<const iovec> pieces) {
    Segment& segment = segments_[index];
    const ssize_t written = pwritev(descriptor_.get(), pieces.data(),
                                    static_cast<int>(pieces.size()), segment.position);
    if (written < 0 && errno != EINTR) {
        return local_error(part_, "written");
    }
    // A short write is rare (a full disk, a signal): the rest goes piece by piece.
    auto done = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    for (const iovec& piece : pieces) {
        const std::size_t skipped = std::min(done, piece.iov_len);
        done -= skipped;
        if (!write_all(descriptor_.get(), static_cast<const char*>(piece.iov_base) + skipped,
                       piece.iov_len - skipped,
                       segment.position + static_cast<std::int64_t>(skipped))) {
            return local_error(part_, "written");
        }
        segment.position += static_cast<std::int64_t>(piece.iov_len);
    }
    return remember(index);
}

Result<void> PartFile::read(void* data, std::size_t size, std::int64_t offset) const {
    auto* place = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t count = pread(descriptor_.get(), place, size, offset);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return local_error(part_, "read", count == 0 ? EIO : errno);
        }
        const ssize_t step = std::max<ssize_t>(count, 0);
        place += step;
        size -= static_cast<std::size_t>(step);
        offset += step;
    }
    return {};
}

Result<std::string> PartFile::sha256() const {
    Sha256 hash;
    std::vector<char> piece(256UL * 1024);
    for (std::int64_t offset = 0; offset < source_.size;) {
        const auto size = static_cast<std::size_t>(
            std::min<std::int64_t>(std::ssize(piece), source_.size - offset));
        if (auto got = read(piece.data(), size, offset); !got) {
            return got.error();
        }
        hash.add(piece.data(), size);
        offset += static_cast<std::int64_t>(size);
    }
    return hash.digest();
}

Result<void> PartFile::forget() {
    return begin(source_);
}

Result<void> PartFile::complete() {
    if (ftruncate(descriptor_.get(), source_.size) != 0) {
        return local_error(part_, "written");
    }
    if (auto named = give_name(descriptor_, part_, target_, source_.time); !named) {
        return named;
    }
    unlink(info_.c_str());
    return {};
}

Result<bool> write_at_once(const std::string& target, std::int64_t time, std::string_view bytes) {
    const std::string part = target + part_suffix;
    const FileDescriptor descriptor(
        open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!descriptor.is_open()) {
        return errno == EEXIST ? Result<bool>(false) : local_error(part, "opened");
    }
    if (flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        return false;
    }
    if (!write_all(descriptor.get(), bytes.data(), bytes.size(), 0)) {
        const Error error = local_error(part, "written");
        unlink(part.c_str());
        return error;
    }
    if (auto named = give_name(descriptor, part, target, time); !named) {
        unlink(part.c_str());
        return named.error();
    }
    return true;
}

}  // namespace transmit::detail
