#pragma once

#include <cerrno>
#include <string>
#include <system_error>

#include "client/error.h"

namespace transmit::detail {

// The error of a system call on a local file, from errno.
inline Error local_error(const std::string& path, const std::string& what, int error = errno) {
    const bool missing = error == ENOENT || error == ENOTDIR;
    return {missing ? ErrorKind::missing_file : ErrorKind::local_file, 0,
            path + " can't be " + what + ": " + std::generic_category().message(error)};
}

}  // namespace transmit::detail
