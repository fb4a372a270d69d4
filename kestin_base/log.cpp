#include "kestin_base/log.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>

#include "kestin_base/detail/log_settings.h"
#include "kestin_base/detail/log_text.h"
#include "kestin_base/detail/repeat_limit.h"
#include "kestin_base/strings.h"

namespace Kestin::Base {
namespace {

constexpr std::array labels{"Critical", "   Error", " Warning", "   Debug", "   Track"};
constexpr int no_level = -1;

// Most lines are no longer.
constexpr std::size_t usual_length = 512;

struct Log {
    std::atomic<int> lowest_level{no_level};
    detail::LineFile file;

    bool open(const detail::LogSettings& settings) {
        lowest_level = file.open(settings.file) ? settings.lowest_level : no_level;
        return lowest_level != no_level;
    }

    void close() {
        lowest_level = no_level;
        file.close();
    }

    bool keeps(int level) const {
        return level >= 0 && level <= lowest_level.load(std::memory_order_relaxed);
    }
};

// Outlive the singleton, so that a line at the process's end does no harm.
std::array<Log, 2>& logs() {
    static auto& both = *new std::array<Log, 2>;
    return both;
}

// Only the run log has one: of the debug log's lines each is of another step.
detail::RepeatLimit& run_limit() {
    static auto& limit = *new detail::RepeatLimit;
    return limit;
}

// What a line holds ahead of its message.
std::string head_of(KESTIN_LOG_LEVEL level, const detail::LogOrigin& origin) {
    std::string head;
    head.reserve(usual_length);
    head.append(labels.at(level)).append(" ").append(origin.file) += ' ';
    if (origin.class_name != nullptr) {
        head.append(origin.class_name) += "::";
    }
    head.append(origin.function) += ' ';
    head += std::to_string(origin.line) + ' ';
    if (origin.session != 0) {
        head += '[' + std::to_string(origin.session) + "] ";
    }
    return head;
}

std::string words_of(int error) {
    const char* words = ::strerrordesc_np(error);
    return words != nullptr ? words : "error " + std::to_string(error);
}

void write_with_cause(detail::LineFile& file, const std::string& text, int cause) {
    file.write(text);
    if (cause != 0) {
        file.write(text + ": " + words_of(cause));
    }
}

// Says in the run log how many lines were held back.
void write_counts(const std::vector<detail::HeldLines>& counts) {
    for (const auto& [kind, of_all_sessions, count] : counts) {
        detail::LogOrigin origin = kind.origin;
        if (of_all_sessions) {
            origin.session = 0;
        }
        const char* whose = of_all_sessions ? " more of all sessions: " : " more: ";
        logs().front().file.write(head_of(kind.level, origin) + std::to_string(count) + whose +
                                  kind.format);
    }
}

}  // namespace

LogSwitch& LogSwitch::instance() {
    static LogSwitch log_switch;
    return log_switch;
}

LogSwitch::LogSwitch() {
    logs();
}

LogSwitch::~LogSwitch() {
    exit();
}

bool LogSwitch::init(const char* config_path) {
    std::array<detail::LogSettings, 2> settings;
    failure_ = detail::read_log_settings(config_path, settings);
    for (std::size_t index = 0; failure_.empty() && index < settings.size(); ++index) {
        if (!logs().at(index).open(settings.at(index))) {
            failure_ = settings.at(index).file.path + ": " + kestin_error_text(errno);
            exit();
        }
    }
    return failure_.empty();
}

void LogSwitch::exit() {
    try {
        write_counts(run_limit().take_all());
    } catch (const std::bad_alloc&) {
        // The counts are lost.
    }
    for (Log& log : logs()) {
        log.close();
    }
}

void detail::write_log(LogName name, KESTIN_LOG_LEVEL level, const LogOrigin& origin,
                       const char* format, ...) noexcept {
    Log& log = logs().at(static_cast<std::size_t>(name));
    if (!log.keeps(level)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    try {
        const auto now = std::chrono::steady_clock::now();
        write_counts(run_limit().take_ended(now));
        std::string text = head_of(level, origin);
        append_message(text, format, arguments);
        if (name == LogName::debug ||
            run_limit().admits({level, origin, format}, text.size(), now)) {
            write_with_cause(log.file, text, origin.cause);
        }
    } catch (const std::bad_alloc&) {
        // The line is lost.
    }
    va_end(arguments);
}

}  // namespace Kestin::Base
