#pragma once

#include <cstdint>
#include <string>

namespace Kestin::Base {

// All of these take paths as bytes, may be called on unrelated paths at once and never throw. One
// that fails leaves the reason in errno.

// Whether something stands at `path`: a file, a directory, or a link, dangling or not. True also if
// the path can't be examined for any reason but that nothing can stand there (ENOENT, ENOTDIR,
// ENAMETOOLONG), so that nobody counts on a free name.
bool kestin_access_safe(const char* path);

// Whether `path` could be examined; what it is, links followed, goes to `is_directory`, which
// stays as it was on false.
bool kestin_path_is_directory(const char* path, bool& is_directory);

// Whether both paths name one and the same file or directory (hard links included, links of the
// symbolic kind not followed). False if either can't be examined.
bool kestin_same_file(const char* one, const char* other);

// Whether `path` is the directory `folder` or lies in it, with all links followed. False if either
// can't be examined.
bool kestin_is_inside(const char* path, const char* folder);

// Lets the owner write to the file. A link is left alone, and so is what it points to.
bool kestin_chmod_safe(const char* path);

// Deletes a file or a link; refuses a directory.
bool kestin_unlink_safe(const char* path);

// Gives a file or directory another path. A file at `to` is replaced in one step, by a file as
// well as by a directory; on false both stand as before. A directory at `to` is replaced only by a
// directory, and only if it is empty (rename(2)).
bool kestin_rename_safe(const char* from, const char* to);

// Creates the directory with all its parents; one that exists is no fault. If there is no directory
// afterwards, errno tells why.
void kestin_create_directory_recursive(const std::string& path);

// Returns true once the file, or the entries of the directory, are on the disk (fsync(2)).
bool kestin_sync_path(const char* path);

// Whether files below the directory can be locked (File::lock). True also if that can't be tried.
bool kestin_can_lock(const std::string& directory);

// Removes the directory with all its contents, however deep. Links are removed, never followed,
// also when `path` is one itself. What can't be removed stays; the rest goes; errno then tells why
// the first of it couldn't be removed.
void kestin_remove_directory_recursive(const std::string& path);

// Size in bytes and time of last modification in whole seconds since 1970-01-01 UTC, rounded down;
// links are followed. On false the argument stays as it was.
bool file_get_size(const char* path, std::int64_t& size);
bool file_get_time(const char* path, std::int64_t& time);

// What stands at a path. `exists` is what kestin_access_safe returns. The rest is told of the file
// that a link leads to; it is 0 or false if `is_examined` is false. `is_unknown`: the path itself
// couldn't be examined, so nobody may act on what stands there.
struct PathFacts {
    bool exists = false;
    bool is_examined = false;
    bool is_directory = false;
    bool is_regular = false;
    bool is_link = false;
    bool is_unknown = false;
    std::int64_t size = 0;
    std::int64_t time = 0;
};
// One system call, two if a link stands there.
PathFacts kestin_look_at(const char* path);

// Sets the time of last modification, of a link itself if `path` is one. False also if the file
// system keeps another number than `time`: ext4 reports success and clamps what lies outside 1901
// to 2446.
bool file_set_time(const char* path, std::int64_t time);

}  // namespace Kestin::Base
