#pragma once

#include <sys/types.h>

namespace Kestin::Base::detail {

// Gives the owner the permissions `wanted` (S_IRUSR, S_IWUSR, S_IXUSR) on the file or directory
// `name`, counted from the open directory `folder` (AT_FDCWD: the working directory), whose mode
// was `mode` when last seen. Asks the system only if one is lacking, which is never so of a link
// (symlink(7)); what has become a link since is left alone too, and so is what it points to. False:
// it can't be done.
bool grant_owner(int folder, const char* name, mode_t mode, mode_t wanted);

}  // namespace Kestin::Base::detail
