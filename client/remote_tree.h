#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "client/error.h"
#include "client/listing.h"
#include "client/remote.h"
#include "client/retrying_connection.h"

namespace transmit {

// What lies at a path: a folder, or a file with its size and time. The name is the path's last
// component. Refused with status_access_failed if nothing does.
Result<Entry> stat_path(RetryingConnection& server, const RemotePath& path);

// What a folder holds; a file is refused with status_path_is_file.
Result<std::vector<Entry>> list_folder(RetryingConnection& server, const RemotePath& folder);

// One folder of a tree, sorted by name. `path` is relative to where the walk began: empty, "a",
// "a/b". An error in place of the entries if it can't be listed.
using FolderVisitor =
    std::function<void(const std::string& path, const Result<std::vector<Entry>>& entries)>;

// Visits the folder and those below it, however deep, parents first. Folders whose names are no
// plain names (see is_plain_name) are listed but not entered. Fails if the first folder can't be
// listed, the connection can't be had, or the tree has more than some three million entries.
Result<void> walk_remote(RetryingConnection& server, const RemotePath& folder,
                         const FolderVisitor& visit);

// True if a name means one entry of its folder on both sides: not empty, neither `.` nor `..`, and
// without `/`, `\` and zero bytes.
bool is_plain_name(std::string_view name);

// What became of a path that a listing told. One with U+FFFD in it may have stood there for bytes
// that XML can't hold: then the server knows no such path, and the error says so.
Error listed_path_error(const std::string& path, Error error);

}  // namespace transmit
