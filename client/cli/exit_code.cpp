#include "client/cli/exit_code.h"

#include <array>
#include <csignal>

#include "client/cli/interrupt.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::cli {

std::span<const ExitCodeText> exit_code_texts() {
    static constexpr std::array texts{
        ExitCodeText{ExitCode::done, "done", "Done."},
        ExitCodeText{ExitCode::other_error, "other error",
                     "An error for which there is no other code."},
        ExitCodeText{ExitCode::usage, "usage", "The command line or the settings file is wrong."},
        ExitCodeText{ExitCode::folder_not_found, "folder not found",
                     "A folder wasn't found, on the server or here."},
        ExitCodeText{ExitCode::file_not_found, "file not found",
                     "A file wasn't found, on the server or here."},
        ExitCodeText{ExitCode::temporary, "temporary",
                     "It may pass by itself: the file is in use by another client, it changed on "
                     "its way, or the server has no room for another transfer."},
        ExitCodeText{ExitCode::some_failed, "some files failed",
                     "Some of several files failed; standard error tells which."},
        ExitCodeText{ExitCode::no_connection, "no connection",
                     "No connection to the server, or the connection of a command that isn't a "
                     "transfer broke."},
        ExitCodeText{ExitCode::time_limit, "time limit",
                     "A time limit passed: the server was silent, attempts went on for too long "
                     "without progress, or the whole took longer than it may."},
        ExitCodeText{ExitCode::interrupted, "interrupted",
                     "SIGINT. What a transfer has brought so far is kept."},
        ExitCodeText{ExitCode::terminated, "terminated",
                     "SIGTERM. What a transfer has brought so far is kept."},
    };
    return texts;
}

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
            return ending_signal() == SIGTERM  ? ExitCode::terminated
                   : ending_signal() == SIGINT ? ExitCode::interrupted
                                               : ExitCode::time_limit;
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
           code == ExitCode::interrupted || code == ExitCode::terminated;
}

}  // namespace transmit::cli
