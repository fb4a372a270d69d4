#include "client/detail/part_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iomanip>
#include <optional>
#include <sstream>
#include <utility>

#include "client/detail/file_io.h"
#include "client/detail/local_error.h"
#include "client/detail/sha256.h"
#include "client/detail/work_name.h"

namespace transmit::detail {
namespace {

constexpr std::string_view mark = "transmit unfinished download 1\n";

// The lines of a part's memory have fixed widths, so that one is brought up to date in its place.
constexpr int number_width = 20;
// More than a memory has, however many its segments are.
constexpr std::size_t longest_info = 8192;

std::string line_of(std::initializer_list<std::int64_t> numbers) {
    std::ostringstream line;
    for (const std::int64_t number : numbers) {
        line << std::setw(number_width) << number << ' ';
    }
    line << '\n';
    return line.str();
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
    return !segments.empty() && std::ssize(segments) <= PartFile::most_segments && end == size;
}

// Who may write to a file of this owner could replace it anyway: ourselves, and the folder's owner,
// who is also shown as the owner of our files by file systems that know no owners.
bool is_ours(const struct stat& status, int folder) {
    struct stat of_folder {};
    return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           (status.st_uid == geteuid() ||
            (fstat(folder, &of_folder) == 0 && status.st_uid == of_folder.st_uid));
}

struct WorkFile {
    FileDescriptor descriptor;
    bool is_new = false;
};

// Nothing if the name is taken by something that isn't a work file of ours. Looks before it opens,
// since opening may act on a device or wait for a pipe, and once more at what it opened.
Result<std::optional<WorkFile>> open_work_file(int folder, const std::string& name) {
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor made(openat(folder, name.c_str(), flags | O_CREAT | O_EXCL, 0666));
    if (made.is_open()) {
        return std::optional(WorkFile{std::move(made), true});
    }
    if (errno != EEXIST) {
        return local_error(name, "made");
    }
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !is_ours(status, folder)) {
        return std::optional<WorkFile>();
    }
    FileDescriptor found(openat(folder, name.c_str(), flags));
    if (!found.is_open() || fstat(found.get(), &status) != 0 || !is_ours(status, folder)) {
        return std::optional<WorkFile>();
    }
    return std::optional(WorkFile{std::move(found), false});
}

// True while the name still leads to the open file: another process may have given it another one.
bool leads_to(int folder, const std::string& name, const FileDescriptor& descriptor) {
    struct stat by_name {};
    struct stat by_descriptor {};
    return fstatat(folder, name.c_str(), &by_name, AT_SYMLINK_NOFOLLOW) == 0 &&
           fstat(descriptor.get(), &by_descriptor) == 0 && by_name.st_dev == by_descriptor.st_dev &&
           by_name.st_ino == by_descriptor.st_ino;
}

std::int64_t inode_of(const FileDescriptor& descriptor) {
    struct stat status {};
    return fstat(descriptor.get(), &status) == 0 ? static_cast<std::int64_t>(status.st_ino) : -1;
}

// What a memory says, however long the file is.
std::string info_text(const FileDescriptor& info) {
    std::string text(longest_info, '\0');
    const ssize_t size = pread(info.get(), text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return text;
}

struct Memory {
    std::string source;
    std::int64_t inode = -1;
    FileStamp stamp;
    std::vector<Segment> segments;
};

std::optional<Memory> read_memory(const FileDescriptor& info) {
    const std::string text = info_text(info);
    if (!text.starts_with(mark)) {
        return std::nullopt;
    }
    std::istringstream lines(text.substr(mark.size()));
    Memory memory;
    lines >> memory.source >> memory.inode >> memory.stamp.size >> memory.stamp.time;
    for (Segment segment{}; lines >> segment.begin >> segment.position >> segment.end;) {
        memory.segments.push_back(segment);
    }
    return memory;
}

// Some file systems report a failed write only when the file is closed. A second descriptor of the
// same file is closed for that, since closing the first would give up the lock.
bool closes_well(const FileDescriptor& descriptor) {
    const int copy = fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0);
    return copy >= 0 && close(copy) == 0;
}

// A time that the file system can't hold is no reason to withhold the file.
void set_time(const FileDescriptor& descriptor, std::int64_t time) {
    const timespec times[2] = {{0, UTIME_NOW}, {time, 0}};
    futimens(descriptor.get(), times);
}

// Gives an unnamed file a name that nothing has. False with EEXIST if something has it.
bool link_to(const FileDescriptor& descriptor, int folder, const std::string& name) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor.get());
    return linkat(AT_FDCWD, path.c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

std::string described(const RemotePath& source) {
    return Sha256::of(std::to_string(source.storage_id) + '/' + std::to_string(source.user_id) +
                      '/' + source.path);
}

}  // namespace

Result<PartFile> PartFile::open(LocalTarget target, const RemotePath& source,
                                const IsReserved& is_reserved) {
    if (auto replaceable = can_be_replaced(target); !replaceable) {
        return replaceable.error();
    }
    const int folder = target.folder->descriptor();
    for (int round = 0; round < most_work_names; ++round) {
        WorkNames names{work_name(target.name, part_ending, round),
                        work_name(target.name, info_ending, round)};
        if (is_reserved(names.part) || is_reserved(names.info)) {
            continue;
        }
        auto part = open_part(target, names);
        if (!part) {
            return part.error();
        }
        if (!part->is_open()) {
            continue;
        }
        FileDescriptor info(openat(folder, names.info.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
        return PartFile(std::move(target), described(source), std::move(names), *std::move(part),
                        std::move(info));
    }
    return Error{ErrorKind::local_file, 0,
                 "no work file can be made for " + target.path +
                     ": other files have the names .transmit-*.part"};
}

bool PartFile::is_begun(const LocalTarget& target) {
    const std::string name = work_name(target.name, part_ending);
    return faccessat(target.folder->descriptor(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// Both work files, the part locked; no descriptor if one of them is somebody else's.
Result<FileDescriptor> PartFile::open_part(const LocalTarget& target, const WorkNames& names) {
    const int folder = target.folder->descriptor();
    auto part = open_work_file(folder, names.part);
    if (!part) {
        return part.error();
    }
    if (!*part) {
        return FileDescriptor();
    }
    if (flock((*part)->descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        return Error{ErrorKind::local_file, 0, target.path + " is being fetched already"};
    }
    if (!leads_to(folder, names.part, (*part)->descriptor)) {
        return open_part(target, names);
    }
    auto info = open_work_file(folder, names.info);
    const auto memory = info && *info ? read_memory((*info)->descriptor) : std::nullopt;
    const bool info_is_free = info && *info && ((*info)->is_new || memory);
    const bool is_ours =
        (*part)->is_new ? info_is_free : memory && memory->inode == inode_of((*part)->descriptor);
    if (is_ours) {
        return std::move((*part)->descriptor);
    }
    if ((*part)->is_new) {
        unlinkat(folder, names.part.c_str(), 0);
    }
    if (info && *info && (*info)->is_new) {
        unlinkat(folder, names.info.c_str(), 0);
    }
    return FileDescriptor();
}

PartFile::PartFile(LocalTarget target, std::string source, WorkNames names,
                   FileDescriptor descriptor, FileDescriptor info)
    : target_(std::move(target)),
      source_(std::move(source)),
      names_(std::move(names)),
      descriptor_(std::move(descriptor)),
      info_(std::move(info)) {
}

Result<void> PartFile::prepare(const FileStamp& stamp) {
    if ((!segments_.empty() && stamp == stamp_) || recall(stamp)) {
        return {};
    }
    return begin(stamp);
}

// The file may be shorter than its memory says, after a crash of the system or by another's hand.
bool PartFile::recall(const FileStamp& stamp) {
    auto memory = read_memory(info_);
    struct stat status {};
    if (!memory || memory->source != source_ || memory->stamp != stamp ||
        !cover(memory->segments, stamp.size) || fstat(descriptor_.get(), &status) != 0) {
        return false;
    }
    for (Segment& segment : memory->segments) {
        segment.position =
            std::clamp<std::int64_t>(status.st_size, segment.begin, segment.position);
    }
    stamp_ = stamp;
    segments_ = std::move(memory->segments);
    return true;
}

// The part is emptied before its memory changes: at no moment do bytes of one version stand beside
// the memory of another.
Result<void> PartFile::begin(const FileStamp& stamp) {
    if (ftruncate(descriptor_.get(), 0) != 0 || ftruncate(info_.get(), 0) != 0) {
        return failed("emptied", errno);
    }
    stamp_ = stamp;
    segments_ = {{0, 0, stamp.size}};
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

std::string PartFile::head() const {
    return std::string(mark) + source_ + '\n' +
           line_of({inode_of(descriptor_), stamp_.size, stamp_.time});
}

// With one write: whenever the process ends, the memory is whole.
Result<void> PartFile::remember() const {
    std::string text = head();
    for (const Segment& segment : segments_) {
        text += segment_line(segment);
    }
    return write_info(text, 0);
}

Result<void> PartFile::remember(std::size_t segment) const {
    static const std::size_t head_size = head().size();
    const std::string line = segment_line(segments_[segment]);
    return write_info(line, head_size + segment * line.size());
}

Result<void> PartFile::write_info(std::string_view text, std::size_t offset) const {
    if (!info_.is_open() ||
        !write_at(info_.get(), text.data(), text.size(), static_cast<std::int64_t>(offset))) {
        return failed("written", errno);
    }
    return {};
}

Result<void> PartFile::append(std::size_t index, std::span<const iovec> pieces) {
    Segment& segment = segments_[index];
    const ssize_t written = pwritev(descriptor_.get(), pieces.data(),
                                    static_cast<int>(pieces.size()), segment.position);
    if (written < 0 && errno != EINTR) {
        return failed("written", errno);
    }
    // A short write is rare (a full disk, a signal): the rest goes piece by piece.
    auto done = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    for (const iovec& piece : pieces) {
        const std::size_t skipped = std::min(done, piece.iov_len);
        done -= skipped;
        if (!write_at(descriptor_.get(), static_cast<const char*>(piece.iov_base) + skipped,
                      piece.iov_len - skipped,
                      segment.position + static_cast<std::int64_t>(skipped))) {
            return failed("written", errno);
        }
        segment.position += static_cast<std::int64_t>(piece.iov_len);
    }
    return remember(index);
}

Result<void> PartFile::read(void* data, std::size_t size, std::int64_t offset) const {
    const ssize_t count = read_at(descriptor_.get(), data, size, offset);
    if (count < 0 || static_cast<std::size_t>(count) < size) {
        return failed("read", count < 0 ? errno : EIO);
    }
    return {};
}

Result<std::string> PartFile::sha256(const std::function<bool()>& cancelled) const {
    return sha256_of(
        stamp_.size,
        [this](void* data, std::size_t size, std::int64_t offset) {
            return read(data, size, offset);
        },
        cancelled);
}

Result<void> PartFile::forget() {
    return begin(stamp_);
}

// What came to the name meanwhile, by another's hand, is nothing to give the target's name.
Result<void> PartFile::complete() {
    const int folder = target_.folder->descriptor();
    if (auto replaceable = can_be_replaced(target_); !replaceable) {
        return replaceable;
    }
    if (ftruncate(descriptor_.get(), stamp_.size) != 0) {
        return failed("written", errno);
    }
    set_time(descriptor_, stamp_.time);
    if (!closes_well(descriptor_)) {
        return failed("written", errno);
    }
    if (!leads_to(folder, names_.part, descriptor_)) {
        return failed("named", ENOENT);
    }
    if (renameat(folder, names_.part.c_str(), folder, target_.name.c_str()) != 0) {
        return local_error(target_.path, "replaced");
    }
    unlinkat(folder, names_.info.c_str(), 0);
    return {};
}

Error PartFile::failed(const char* what, int error) const {
    return local_error("the work file " + names_.part + " of " + target_.path, what, error);
}

// An unnamed file takes the target's name at once if nothing has it; what is there is replaced by
// way of a work name.
Result<bool> write_at_once(const LocalTarget& target, std::int64_t time, std::string_view bytes,
                           const IsReserved& is_reserved) {
    const int folder = target.folder->descriptor();
    const FileDescriptor descriptor(openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
    if (!descriptor.is_open()) {
        return false;
    }
    if (!write_at(descriptor.get(), bytes.data(), bytes.size(), 0)) {
        return local_error(target.path, "written");
    }
    set_time(descriptor, time);
    if (link_to(descriptor, folder, target.name)) {
        return true;
    }
    const std::string name = work_name(target.name, part_ending);
    if (errno != EEXIST || is_reserved(name) || !can_be_replaced(target) ||
        !link_to(descriptor, folder, name)) {
        return false;
    }
    if (renameat(folder, name.c_str(), folder, target.name.c_str()) != 0) {
        const Error error = local_error(target.path, "replaced");
        unlinkat(folder, name.c_str(), 0);
        return error;
    }
    return true;
}

}  // namespace transmit::detail
