#include "client/cli/batch.h"

namespace transmit::cli {

ExitCode for_each(const std::vector<std::string>& things,
                  const std::function<ExitCode(const std::string&)>& act) {
    bool failed = false;
    for (const std::string& thing : things) {
        const ExitCode code = act(thing);
        if (code != ExitCode::done && (things.size() == 1 || ends_all(code))) {
            return code;
        }
        failed = failed || code != ExitCode::done;
    }
    return failed ? ExitCode::some_failed : ExitCode::done;
}

}  // namespace transmit::cli
