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

Result<Connection> connect(const Common& common) {
    return Connection::open(common.server, wait_limits(common));
}

RetryingConnection connect_stubbornly(const Common& common) {
    RetryPolicy policy;
    policy.time_limit = common.retry_for;
    const auto notice = [quiet = common.quiet](const Error& reason,
                                               std::chrono::milliseconds pause) {
        if (!quiet) {
            const auto seconds = std::chrono::ceil<std::chrono::seconds>(pause).count();
            complain(reason.text + "; next attempt in " + std::to_string(seconds) + " s");
        }
    };
    return RetryingConnection(common.server, wait_limits(common), policy, notice);
}

}  // namespace transmit::cli
