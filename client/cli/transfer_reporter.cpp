#include "client/cli/transfer_reporter.h"

#include <cstdio>

#include "client/batch.h"
#include "client/cli/exit_code.h"
#include "client/cli/json.h"
#include "client/cli/progress_view.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"
#include "client/wait_limits.h"

namespace transmit::cli {
namespace {

Json object(const char* event, const TransferNames& names) {
    return {{"event", event}, {"source", names.source}, {"target", names.target}};
}

Json with_error(Json object, const Error& error) {
    object["error"] = error.text;
    object["code"] = static_cast<int>(exit_code(error));
    if (error.kind == ErrorKind::refused) {
        object["status"] = error.status;
    }
    return object;
}

std::string outcome(const TransferReport& report) {
    if (report.already_there) {
        return "is there already";
    }
    std::string text = "done, " + shown_size(static_cast<double>(report.size));
    if (report.resumed_from > 0) {
        text += ", of which " + shown_size(static_cast<double>(report.resumed_from)) +
                " were there before";
    }
    return text + (report.verified ? ", verified" : "");
}

}  // namespace

void TransferReporter::started(std::size_t file) {
    display_.update(
        [file](BatchProgress& progress, Clock::time_point now) { progress.start(file, now); });
}

void TransferReporter::placed(std::size_t file, const std::string& path) {
    names_[file].target = path;
}

void TransferReporter::progressed(std::size_t file, const Progress& moved) {
    display_.update([&](BatchProgress& progress, Clock::time_point now) {
        progress.advance(file, moved.done, moved.total, moved.resumed_from, now);
    });
}

void TransferReporter::stalled(std::size_t file) {
    display_.update([&](BatchProgress& progress, Clock::time_point now) {
        progress.hinder(file, {"stalled", now - WaitLimits().stall, {}, {}}, now);
    });
    if (common_.verbose) {
        say(file, "stalled");
    }
}

void TransferReporter::retrying(std::size_t file, const Error& reason,
                                std::chrono::milliseconds pause, std::chrono::milliseconds left) {
    if (file >= names_.size()) {
        return;  // a batch without files waits for its server
    }
    std::string text;
    display_.update([&](BatchProgress& progress, Clock::time_point now) {
        const Hindrance hindrance{reason.text, {}, now + pause, now + left};
        text = hindrance_text(hindrance, now);
        progress.hinder(file, hindrance, now);
    });
    if (common_.json) {
        Json event = with_error(object("retry", names_[file]), reason);
        event["pause"] = std::chrono::duration<double>(pause).count();
        print_line(event);
    }
    if (!common_.quiet && display_.style() != ProgressDisplay::Style::bars) {
        say(file, text);
    }
}

void TransferReporter::started_over(std::size_t file, const std::string& reason) {
    if (common_.json) {
        Json event = object("started_over", names_[file]);
        event["reason"] = reason;
        print_line(event);
    }
    if (!common_.quiet) {
        say(file, shown(reason) + "; starting over");
    }
}

void TransferReporter::done(std::size_t file, const TransferReport& report) {
    display_.update([&](BatchProgress& progress, Clock::time_point /*now*/) {
        progress.finish(file, report.size);
    });
    if (dry_run_) {
        tell_plan(file, report);
        return;
    }
    if (common_.json) {
        Json event = object(report.already_there ? "already_there" : "done", names_[file]);
        event["size"] = report.size;
        event["moved"] = report.moved;
        event["resumed_from"] = report.resumed_from;
        event["verified"] = report.verified;
        print_line(event);
    }
    if (common_.verbose) {
        say(file, outcome(report));
    }
}

// What a cancellation cut short isn't worth a word for each file.
void TransferReporter::failed(std::size_t file, const Error& error) {
    display_.update(
        [file](BatchProgress& progress, Clock::time_point /*now*/) { progress.fail(file); });
    if (error.kind == ErrorKind::cancelled) {
        return;
    }
    if (common_.json) {
        print_line(with_error(object("failed", names_[file]), error));
    }
    const TransferNames& names = names_[file];
    const bool names_both = error.kind == ErrorKind::refused && names.source != names.target;
    display_.say(complaint(names_both ? names.source + " -> " + names.target : names.source, error,
                           Resumes::yes));
}

void TransferReporter::say(std::size_t file, const std::string& text) {
    display_.say("transmit: " + shown(names_[file].source) + ": " + text);
}

void TransferReporter::tell_plan(std::size_t file, const TransferReport& report) {
    const TransferNames& names = names_[file];
    if (common_.json) {
        Json event = object(report.already_there ? "already_there" : "would_move", names);
        event["size"] = report.size;
        print_line(event);
    } else if (!report.already_there) {
        std::printf("%s -> %s\n", shown(names.source).c_str(), shown(names.target).c_str());
    } else if (common_.verbose) {
        say(file, outcome(report));
    }
}

}  // namespace transmit::cli
