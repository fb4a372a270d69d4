#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "kestin_base/file_system.h"
#include "kestin_base/uncopy.h"

namespace Kestin::Base {

// A regular file, open for one transfer. One owner at a time. Only regular files can be opened, so
// that no call waits on a pipe or a device. Every operation but `close` is false while no file is
// open. An operation that fails leaves the reason in errno.
class File : private Uncopy {
  public:
    File() = default;
    ~File();

    // Closes what was open first. `write` true: creates the file if it is missing, keeps an
    // existing file's bytes and adds behind them; a link is refused. `write` false: opens for
    // reading from the start; links are followed. The third argument is always false.
    bool open(const char* path, bool write, bool reserved);

    // Makes the file and opens it for writing. False: something stands at the path already, be it a
    // link, or no file can be made there. Closes what was open first.
    bool create(const char* path);

    // Opens an existing file for writing behind its bytes; a link is refused. Closes what was open
    // first.
    bool open_existing(const char* path);

    // Takes the exclusive lock of the file (flock(2)) without waiting. The lock belongs to this
    // open file, also against others of the same process, and ends with `close`. `unsupported`: the
    // file system has no locks, or they failed.
    enum class Lock { taken, held, unsupported };
    Lock lock();

    // Whether `path` names this very file; a link there counts as another file.
    bool is_at(const char* path) const;

    // The same, and whether the file has `size` bytes.
    bool is_at(const char* path, std::int64_t size) const;

    // What `kestin_look_at` tells of a path, of the open file.
    PathFacts look() const;

    bool is_open() const;

    // How many bytes it held when it was opened.
    std::int64_t size_at_open() const { return size_at_open_; }

    // For a call of the system that reads on its own; none, -1. It stays the file's.
    int descriptor() const { return descriptor_; }

    // True once a read has met the end of the file: it gave fewer bytes than asked for, also 0.
    bool is_eof() const;

    // Reads up to `size` bytes; `got` says how many came. Meeting the end is no failure.
    bool read(char* buffer, std::uint64_t size, std::uint64_t& got);

    // Writes all bytes, however many calls that takes.
    bool write(const char* data, std::uint64_t size);

    // Writes at most `most_pieces` pieces, one behind the other, in as few calls as the system
    // allows. How many were written whole: all of them, or the number of the one that failed.
    using Piece = std::span<const std::uint8_t>;
    static constexpr std::size_t most_pieces = 16;
    std::size_t write_pieces(std::span<const Piece> pieces);

    // Asks the file system to set aside room for `length` bytes behind those in the file, which
    // makes writing them cheaper; the file's length stays. False: nothing was set aside, because
    // that would leave less than `reserve_margin` to others, or because it failed. The rest goes
    // back with `sync` or `close`.
    static constexpr std::uint64_t reserve_margin = std::uint64_t{1} << 30;
    bool reserve(std::uint64_t length);

    // Starts writing a range of the file to the disk, and doesn't wait for it (sync_file_range(2)).
    void start_write_back(std::int64_t begin, std::int64_t end) const;

    // Returns what `close` would about failed writes, and leaves the file open.
    bool flush() const;

    // Returns true once the file's bytes and its length are on the disk (fdatasync(2)). After a
    // false nothing is known of them, and a later true doesn't change that.
    bool sync();

    // Writes data and all attributes to the disk (fsync(2)).
    bool sync_attributes() const;

    // Cuts the file to `size` bytes.
    bool truncate(std::int64_t size) const;

    // As file_set_time; later writes set it anew.
    bool set_time(std::int64_t time) const;

    // A named value of at most `longest_attribute` bytes that stays with the file (xattr(7)). Names
    // begin with "user.". False where the file system has none; `get_attribute` also if it is
    // missing or longer.
    static constexpr std::size_t longest_attribute = 64;
    bool set_attribute(const char* name, const std::string& value) const;
    bool get_attribute(const char* name, std::string& value) const;
    bool remove_attribute(const char* name) const;

    // Sets the read position, counted from the start; beyond the end is allowed, below 0 is not.
    // The end of the file has to be met again afterwards.
    bool seek(std::int64_t position);

    // False if the system reports a failed write only now. Nothing to close is no failure. Syncs a
    // file first that has a reserve to give back.
    bool close();

  private:
    bool open_as(const char* path, int mode);
    bool open_regular(const char* path, int mode);
    bool give_back_reserve();

    int descriptor_ = -1;
    std::int64_t size_at_open_ = 0;
    std::int64_t position_ = 0;
    bool at_end_ = false;
    // Where the room that was set aside ends, counted from the start of the file.
    std::int64_t reserve_end_ = 0;
};

}  // namespace Kestin::Base
