#include "client/cli/exit_code.h"

#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::cli {

ExitCode exit_code(const Error& error, ExitCode missing) {
    switch (error.kind) {
        case ErrorKind::no_connection:
        case ErrorKind::connection_lost:
            return ExitCode::no_connection;
        case ErrorKind::time_limit:
            return ExitCode::time_limit;
        case ErrorKind::missing_file:
            return missing;
        case ErrorKind::cancelled:
            return ExitCode::interrupted;
        default:
            break;
    }
    if (error.status == message::status_access_failed) {
        return missing;
    }
    return is_temporary(error) ? ExitCode::temporary : ExitCode::other_error;
}

bool ends_all(ExitCode code) {
    return code == ExitCode::no_connection || code == ExitCode::time_limit ||
           code == ExitCode::interrupted;
}

}  // namespace transmit::cli
