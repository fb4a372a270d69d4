#include "kestin_base/detail/file_mode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "kestin_base/detail/descriptor.h"

namespace Kestin::Base::detail {

bool grant_owner(int folder, const char* name, mode_t mode, mode_t wanted) {
    if ((mode & wanted) == wanted) {
        return true;
    }
    const Descriptor found(::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat facts {};
    if (!found || ::fstat(found.number(), &facts) != 0) {
        return false;
    }
    if (S_ISLNK(facts.st_mode)) {
        return true;
    }
    // fchmod refuses a descriptor that was opened without any permission on the file; its entry
    // below /proc leads to the very file that was examined, whatever stands at `name` now.
    const std::string same = "/proc/self/fd/" + std::to_string(found.number());
    return ::chmod(same.c_str(), (facts.st_mode & 07777U) | wanted) == 0;
}

}  // namespace Kestin::Base::detail
