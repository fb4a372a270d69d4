#pragma once

#include <string>

namespace Kestin::Base {

// The folder part of a file path, without a closing separator ("/" for a file of the root). A text
// without a separator names a file of the working directory, and its folder is ".". False for an
// empty path. The third argument is always true.
bool kestin_extract_directory(const char* path, std::string& directory, bool strictly);

// The working directory with "/" at its end, so that relative paths can be appended to it.
bool kestin_get_current_work_directory(std::string& directory);
bool kestin_set_current_work_directory(const std::string& directory);

// The absolute normal form of `in`: separators are "/", none doubled, none at the end (but for "/"
// itself), no "." or ".." component; a relative text counts from the working directory. Purely
// lexical: links are not resolved and nothing need exist. A backslash is an ordinary character.
// False, with `out` empty, only if the working directory can't be told. The third argument is
// always true.
bool kestin_absolute_pathname_format_strictly(const std::string& in, std::string& out,
                                              bool strictly);

}  // namespace Kestin::Base
