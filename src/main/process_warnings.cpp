#include "src/main/process_warnings.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

// umask(2) tells the mask only by setting another. No other thread runs yet.
mode_t current_umask() {
    const mode_t mask = umask(077);
    umask(mask);
    return mask;
}

}  // namespace

void warn_of_process(const OperationLog& log) {
    if (geteuid() == 0) {
        log.warning(
            "the server runs as root: use a user who owns nothing but the storages and the "
            "log folder");
    }
    if (current_umask() == 0) {
        log.warning("the umask is 0: every user of this machine can change what clients upload");
    }
}
