#include "client/cli/server.h"

#include "client/cli/interrupt.h"
#include "client/cli/terminal.h"

namespace transmit::cli {

WaitLimits wait_limits(const Common& common) {
    WaitLimits limits;
    limits.silence = common.silence;
    limits.cancelled = &interrupted;
    return limits;
}

RetryingConnection connect_once(const Common& common, const Endpoint& endpoint) {
    RetryPolicy once;
    once.time_limit = std::chrono::milliseconds::zero();
    return RetryingConnection(endpoint, wait_limits(common), once);
}

ExitCode for_each_target(const Common& common, const std::vector<std::string>& names,
                         const TargetAction& act, ExitCode missing) {
    const auto targets = parse_targets(names, common.defaults);
    if (!targets) {
        complain("", targets.error());
        return ExitCode::usage;
    }
    RetryingConnection server = connect_once(common, targets->front().server);
    ExitCode result = ExitCode::done;
    for (const Target& target : *targets) {
        if (const auto done = act(server, target.path); !done) {
            complain(target.path.path, done.error());
            const ExitCode code = exit_code(done.error(), missing);
            if (names.size() == 1 || ends_all(code)) {
                return code;
            }
            result = ExitCode::some_failed;
        }
    }
    return result;
}

}  // namespace transmit::cli
