#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/detail/file_descriptor.h"
#include "client/detail/local_target.h"
#include "client/error.h"
#include "client/remote.h"

namespace transmit::detail {

// A stretch of a file that comes in one stream: what lies before `position` is there.
struct Segment {
    std::int64_t begin;
    std::int64_t position;
    std::int64_t end;

    bool is_whole() const { return position == end; }
};

// True of names in the target's folder that no work file may take, since a file of the same batch
// gets them.
using IsReserved = std::function<bool(const std::string& name)>;

// A file on its way from the server. It grows under a work name (see work_name.h) in its target's
// folder and takes the target's name when it is whole. Beside it lies a second work file, its
// memory: a line that marks it as this program's, the work file's inode, the source with size and
// time, and which bytes are there, so that another run goes on. A file that bears a work name but
// isn't described by such a memory is somebody else's: the next work name is taken. Work files are
// regular files of ours with one link, opened without following links. One process at a time works
// on a part.
class PartFile {
  public:
    // `source` is where the bytes come from: the part of another source isn't gone on with.
    static Result<PartFile> open(LocalTarget target, const RemotePath& source,
                                 const IsReserved& is_reserved);

    // Whether something lies where the part of a target would.
    static bool is_begun(const LocalTarget& target);

    // Makes it the part of this version of the source. What is there of it stays, in its segments;
    // else it begins with nothing, in one.
    Result<void> prepare(const FileStamp& stamp);
    // Divides what the only segment misses evenly among it and new ones, `count` in all.
    Result<void> split(std::int64_t count);
    std::span<const Segment> segments() const { return segments_; }
    std::int64_t stored() const;

    // At most 1024 pieces (IOV_MAX), in order, behind what the segment has, up to its end. Segments
    // may be added to by different threads.
    Result<void> append(std::size_t segment, std::span<const iovec> pieces);
    // Of what is there.
    Result<void> read(void* data, std::size_t size, std::int64_t offset) const;
    Result<std::string> sha256(const std::function<bool()>& cancelled) const;
    // Throws away what is there.
    Result<void> forget();
    // Gives the file the source's time and the target's name.
    Result<void> complete();

    // The most segments of a part.
    static constexpr std::int64_t most_segments = 64;

  private:
    struct WorkNames {
        std::string part;
        std::string info;
    };

    PartFile(LocalTarget target, std::string source, WorkNames names, FileDescriptor descriptor,
             FileDescriptor info);

    static Result<FileDescriptor> open_part(const LocalTarget& target, const WorkNames& names);
    bool recall(const FileStamp& stamp);
    Result<void> begin(const FileStamp& stamp);
    Result<void> remember() const;
    Result<void> remember(std::size_t segment) const;
    Result<void> write_info(std::string_view text, std::size_t offset) const;
    std::string head() const;
    Error failed(const char* what, int error) const;

    LocalTarget target_;
    std::string source_;
    WorkNames names_;
    FileDescriptor descriptor_;
    FileDescriptor info_;
    FileStamp stamp_;
    std::vector<Segment> segments_;
};

// Writes a whole small file at once, without a name until it is whole. False, with nothing done, if
// that doesn't work here: then a part does.
Result<bool> write_at_once(const LocalTarget& target, std::int64_t time, std::string_view bytes,
                           const IsReserved& is_reserved);

}  // namespace transmit::detail
