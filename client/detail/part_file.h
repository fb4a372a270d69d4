#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/detail/file_descriptor.h"
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

// A file on its way from the server: it grows as TARGET.part and takes the target's name when it is
// whole. Beside it TARGET.part.info remembers of which version of the source it is and which bytes
// are there, so that another run can go on. One process at a time works on a part.
class PartFile {
  public:
    static Result<PartFile> open(const std::string& target);
    // Whether something lies at the target or at its part.
    static bool is_begun(const std::string& target);

    // Makes it the part of this version of the source. What is there of it stays, in its segments;
    // else it begins with nothing, in one.
    Result<void> prepare(const FileStamp& source);
    // Divides what the only segment misses evenly among it and new ones, `count` in all.
    Result<void> split(std::int64_t count);
    std::span<const Segment> segments() const { return segments_; }
    std::int64_t stored() const;

    // At most 1024 pieces (IOV_MAX), in order, behind what the segment has, up to its end. Segments
    // may be added to by different threads.
    Result<void> append(std::size_t segment, std::span<const iovec> pieces);
    // Of what is there.
    Result<void> read(void* data, std::size_t size, std::int64_t offset) const;
    Result<std::string> sha256() const;
    // Throws away what is there.
    Result<void> forget();
    // Gives the file the source's time and the target's name.
    Result<void> complete();

  private:
    PartFile(FileDescriptor descriptor, std::string target);

    bool recall(const FileStamp& source);
    Result<void> begin(const FileStamp& source);
    Result<void> remember() const;
    Result<void> remember(std::size_t segment) const;
    Result<void> write_info(std::string_view text, std::size_t offset) const;

    FileDescriptor descriptor_;
    FileDescriptor info_descriptor_;
    std::string target_;
    std::string part_;
    std::string info_;
    FileStamp source_;
    std::vector<Segment> segments_;
};

// Writes a whole small file at once, by way of TARGET.part. False, with nothing done, if a part of
// another attempt or another process lies there.
Result<bool> write_at_once(const std::string& target, std::int64_t time, std::string_view bytes);

}  // namespace transmit::detail
