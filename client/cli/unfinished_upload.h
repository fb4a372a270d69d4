#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace transmit::cli {

// True of a name under which the data of an upload lies on the server that isn't done: a name with
// the server's suffix for temporary files, or the name under which this program sends a new
// version of a file. `exists` tells whether the folder has a file of some name: beside the file
// without the suffix, one with it is no unfinished upload, since that would have replaced the
// other. No name has an empty suffix.
bool is_unfinished_upload(std::string_view name, std::string_view suffix,
                          const std::function<bool(const std::string&)>& exists);

}  // namespace transmit::cli
