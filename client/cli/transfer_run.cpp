#include "client/cli/transfer_run.h"

#include <algorithm>
#include <memory>

#include "client/cli/interrupt.h"
#include "client/cli/json.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"

namespace transmit::cli {
namespace {

using Style = ProgressDisplay::Style;

Style style_of(const Common& common, const TransferCommand& command) {
    if (common.quiet || command.dry_run || command.progress == ProgressStyle::none) {
        return Style::none;
    }
    if (command.progress == ProgressStyle::automatic) {
        return common.json ? Style::none : can_redraw() ? Style::bars : Style::lines;
    }
    return command.progress == ProgressStyle::bar && can_redraw() ? Style::bars : Style::lines;
}

BatchProgress progress_of(const TransferPlan& plan) {
    std::vector<BatchFile> files;
    for (const PlannedFile& file : plan.files) {
        files.push_back({file.names.source, file.size});
    }
    return {std::move(files), Clock::now()};
}

std::vector<TransferNames> names_of(const TransferPlan& plan) {
    std::vector<TransferNames> names;
    for (const PlannedFile& file : plan.files) {
        names.push_back(file.names);
    }
    return names;
}

Server server_of(const Common& common, const TransferCommand& command, const Endpoint& endpoint) {
    Server server{endpoint, wait_limits(common), {}};
    if (command.retry_for) {
        server.retry.time_limit = *command.retry_for;
        server.retry.await_server = true;
    }
    return server;
}

TransferOptions options_of(const TransferCommand& command) {
    TransferOptions options;
    options.encrypted = command.encrypted;
    options.in_place = command.in_place;
    options.follow_links = command.follow_links;
    options.always = command.always;
    options.checksum = command.checksum;
    options.server_suffix = command.server_suffix;
    options.check = command.check_all ? ResumeCheck::all : ResumeCheck::tail;
    options.verify = command.verify;
    options.dry_run = command.dry_run;
    options.files_at_once = command.jobs;
    options.streams = command.streams;
    if (command.rate > 0) {
        options.limiter = std::make_shared<RateLimiter>(command.rate);
    }
    return options;
}

// What a wish to stop has cut short is no failure.
std::size_t failures(const TransferSummary& summary) {
    return summary.refused.size() + static_cast<std::size_t>(std::ranges::count_if(
                                        summary.failed, [](const FileFailure& failure) {
                                            return failure.error.kind != ErrorKind::cancelled;
                                        }));
}

ExitCode code_of(const TransferSummary& summary, const TransferPlan& plan) {
    if (summary.stopped) {
        return exit_code(*summary.stopped);
    }
    if (failures(summary) == 0) {
        return ExitCode::done;
    }
    const bool single = plan.files.size() + summary.refused.size() == 1;
    if (!single) {
        return ExitCode::some_failed;
    }
    return exit_code(summary.failed.empty() ? summary.refused.front().error
                                            : summary.failed.front().error);
}

// "3 files sent, 12.0 MiB in 0:05, 2.4 MiB/s; 2 were there already; 1 failed".
std::string summary_line(const TransferSummary& summary, const TransferPlan& plan,
                         Clock::duration time) {
    const double seconds = std::chrono::duration<double>(time).count();
    const auto bytes = static_cast<double>(summary.moved);
    std::string line = counted(summary.done, "file") + " " + plan.done + ", " + shown_size(bytes) +
                       " in " + shown_duration(std::chrono::round<std::chrono::seconds>(time)) +
                       ", " + shown_size(seconds > 0 ? bytes / seconds : 0) + "/s";
    if (summary.already_there > 0) {
        line += "; " + std::to_string(summary.already_there) + " there already";
    }
    if (const auto failed = failures(summary); failed > 0) {
        line += "; " + std::to_string(failed) + " failed";
    }
    return line;
}

// What fails alone has said all there is to say.
bool worth_a_summary(const Common& common, const TransferCommand& command,
                     const TransferSummary& summary) {
    return !common.quiet && !command.dry_run && command.progress != ProgressStyle::none &&
           summary.done + summary.already_there > 0;
}

Json summary_object(const TransferSummary& summary, Clock::duration time, ExitCode code) {
    return {{"event", "summary"},
            {"done", summary.done},
            {"already_there", summary.already_there},
            {"failed", failures(summary)},
            {"moved", summary.moved},
            {"seconds", std::chrono::duration<double>(time).count()},
            {"exit_code", static_cast<int>(code)}};
}

void tell_refusals(const Common& common, const TransferSummary& summary) {
    for (const Refusal& refusal : summary.refused) {
        complain(refusal.path, refusal.error);
        if (common.json) {
            print_line({{"event", "failed"},
                        {"source", refusal.path},
                        {"error", refusal.error.text},
                        {"code", static_cast<int>(exit_code(refusal.error))}});
        }
    }
}

std::string how_it_ended(const TransferCommand& command) {
    return ending_signal() != 0
               ? "interrupted"
               : "the time limit of " + std::to_string(command.max_time.count()) + " s is over";
}

void tell_how_to_go_on(const Common& common, const TransferCommand& command) {
    complain(how_it_ended(command) +
             "; what has come is kept. This goes on: " + shell_quoted(common.command_line));
}

// What stopped the whole has been told of its file already, if there was one, unless it was a wish.
void tell_stop(const Common& common, const TransferCommand& command,
               const TransferSummary& summary) {
    if (summary.stopped->kind == ErrorKind::cancelled) {
        tell_how_to_go_on(common, command);
    } else if (summary.failed.empty()) {
        report_failure(common, "", *summary.stopped);
    }
}

}  // namespace

ExitCode report_stop(const Common& common, const TransferCommand& command, const std::string& path,
                     const Error& error) {
    if (error.kind != ErrorKind::cancelled) {
        return report_failure(common, path, error);
    }
    tell_how_to_go_on(common, command);
    if (common.json) {
        print_line({{"event", "error"},
                    {"code", static_cast<int>(exit_code(error))},
                    {"path", path},
                    {"error", how_it_ended(command)}});
    }
    return exit_code(error);
}

ExitCode run_transfer(const Common& common, const TransferCommand& command,
                      const TransferPlan& plan) {
    const auto start = Clock::now();
    TransferSummary summary;
    {
        ProgressDisplay display(progress_of(plan), style_of(common, command));
        TransferReporter reporter(common, command.dry_run, names_of(plan), display);
        summary = plan.move(server_of(common, command, plan.server), options_of(command), reporter);
    }
    const auto time = Clock::now() - start;
    const ExitCode code = code_of(summary, plan);
    tell_refusals(common, summary);
    if (common.json) {
        print_line(summary_object(summary, time, code));
    } else if (worth_a_summary(common, command, summary)) {
        complain(summary_line(summary, plan, time));
    }
    if (summary.stopped) {
        tell_stop(common, command, summary);
    }
    return code;
}

}  // namespace transmit::cli
