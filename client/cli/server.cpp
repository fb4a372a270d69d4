#include "client/cli/server.h"

#include <charconv>

#include "client/cli/interrupt.h"
#include "client/cli/json.h"
#include "client/cli/terminal.h"
#include "client/listing.h"

namespace transmit::cli {

WaitLimits wait_limits(const Common& common) {
    WaitLimits limits;
    limits.silence = common.silence;
    limits.cancelled = &interrupted;
    return limits;
}

RetryingConnection connect_once(const Common& common, const Endpoint& endpoint,
                                std::optional<std::chrono::seconds> retry_for) {
    RetryPolicy policy;
    policy.time_limit = retry_for.value_or(std::chrono::seconds::zero());
    policy.await_server = retry_for.has_value();
    return RetryingConnection(endpoint, wait_limits(common), policy);
}

namespace {

void report(const Common& common, const std::string& path, const Error& error, ExitCode code) {
    complain(path, error);
    if (common.json) {
        Json object{{"event", "error"}, {"code", static_cast<int>(code)}};
        if (!path.empty()) {
            object["path"] = path;
        }
        object["error"] = error.text;
        if (error.kind == ErrorKind::refused) {
            object["status"] = error.status;
        }
        print_line(object);
    }
}

}  // namespace

ExitCode report_failure(const Common& common, const std::string& path, const Error& error,
                        ExitCode missing) {
    const ExitCode code = exit_code(error, missing);
    report(common, path, error, code);
    return code;
}

ExitCode report_usage(const Common& common, const Error& error) {
    report(common, "", error, ExitCode::usage);
    return ExitCode::usage;
}

Result<std::uint32_t> find_storage(const Common& common, const std::string& name) {
    const auto document =
        connect_once(common, common.defaults.server).run([](Connection& connection) {
            return connection.get_storage_information();
        });
    const auto storages = document ? parse_storages(*document) : document.error();
    if (!storages) {
        return storages.error();
    }
    for (const Storage& storage : *storages) {
        std::uint32_t id = 0;
        const char* const end = storage.id.data() + storage.id.size();
        if (storage.name == name &&
            std::from_chars(storage.id.data(), end, id) == std::from_chars_result{end, {}}) {
            return id;
        }
    }
    return Error{ErrorKind::invalid_request, 0,
                 "the server has no storage named " + name + "; \"transmit storages\" lists them"};
}

ExitCode for_each_target(const Common& common, const std::vector<std::string>& names,
                         const TargetAction& act, ExitCode missing) {
    const auto targets = parse_targets(names, common.defaults);
    if (!targets) {
        return report_usage(common, targets.error());
    }
    RetryingConnection server = connect_once(common, targets->front().server);
    ExitCode result = ExitCode::done;
    for (const Target& target : *targets) {
        if (const auto done = act(server, target.path); !done) {
            const ExitCode code = report_failure(common, target.path.path, done.error(), missing);
            if (names.size() == 1 || ends_all(code)) {
                return code;
            }
            result = ExitCode::some_failed;
        }
    }
    return result;
}

}  // namespace transmit::cli
