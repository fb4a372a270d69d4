#pragma once

#include <cerrno>
#include <cstdint>
#include <type_traits>

#include "kestin_base/log.h"

// Whose lines a log shows: the name of the source, "src/norvane_transmit_node", and of the class,
// null for functions outside one. One constant for each folder (or class).
struct LogSource {
    const char* file;
    const char* class_name = nullptr;
};

// Why a system call failed. Functions of kestin_base that report a failure leave the reason in
// errno; take it before anything else is called.
struct SystemCause {
    int error_number;
};
inline SystemCause system_cause() {
    return {errno};
}

// A checked format, with the source line of the log call that it is written in.
template <typename... Arguments>
class LineFormat {
  public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to be taken as it stands
    consteval LineFormat(const char* text, std::uint64_t line = __builtin_LINE())
        : format_(text), line_(line) {}

    constexpr const char* text() const { return format_.text(); }
    constexpr std::uint64_t line() const { return line_; }

  private:
    Kestin::Base::detail::PrintfFormat<Arguments...> format_;
    std::uint64_t line_;
};

// The log of one operation. The member that begins an operation makes it and hands it down by
// const reference, so that each line names that operation, also if a helper found the fault. Lines
// of a session begin with "[id] ". All members may be called from every thread.
//
//     const OperationLog log(source, session_id());
//     log.error("invalid storage id: %u", id);
//     log.error(system_cause(), "unlink file failed (%s)", path.c_str());
//
// The second form adds a second line, which says in words why the system call failed.
class OperationLog {
  public:
    // The operation is the function that this is called in; `session` is 0 for an operation
    // without a session.
    explicit OperationLog(const LogSource& source, std::uint64_t session = 0,
                          const char* function = __builtin_FUNCTION())
        : source_(source), session_(session), function_(function) {}

    template <typename... Arguments>
    using Format = LineFormat<std::type_identity_t<Arguments>...>;

    template <typename... Arguments>
    void critical(Format<Arguments...> format, Arguments... arguments) const {
        write(Log::run, KESTIN_LOG_CRITICAL, 0, format, arguments...);
    }
    template <typename... Arguments>
    void error(Format<Arguments...> format, Arguments... arguments) const {
        write(Log::run, KESTIN_LOG_ERROR, 0, format, arguments...);
    }
    template <typename... Arguments>
    void error(SystemCause cause, Format<Arguments...> format, Arguments... arguments) const {
        write(Log::run, KESTIN_LOG_ERROR, cause.error_number, format, arguments...);
    }
    template <typename... Arguments>
    void warning(Format<Arguments...> format, Arguments... arguments) const {
        write(Log::run, KESTIN_LOG_WARNING, 0, format, arguments...);
    }
    template <typename... Arguments>
    void warning(SystemCause cause, Format<Arguments...> format, Arguments... arguments) const {
        write(Log::run, KESTIN_LOG_WARNING, cause.error_number, format, arguments...);
    }
    // For a helper whose caller decides how grave its failure is.
    template <typename... Arguments>
    void failure(KESTIN_LOG_LEVEL level, SystemCause cause, Format<Arguments...> format,
                 Arguments... arguments) const {
        write(Log::run, level, cause.error_number, format, arguments...);
    }
    // Progress: to the debug log.
    template <typename... Arguments>
    void debug(Format<Arguments...> format, Arguments... arguments) const {
        write(Log::debug, KESTIN_LOG_DEBUG, 0, format, arguments...);
    }

  private:
    using Log = Kestin::Base::detail::LogName;

    template <typename... Arguments>
    void write(Log log, KESTIN_LOG_LEVEL level, int cause, Format<Arguments...> format,
               Arguments... arguments) const {
        Kestin::Base::detail::write_log(log, level,
                                        {.file = source_.file,
                                         .class_name = source_.class_name,
                                         .function = function_,
                                         .line = format.line(),
                                         .session = session_,
                                         .cause = cause},
                                        format.text(), arguments...);
    }

    LogSource source_;
    std::uint64_t session_;
    const char* function_;
};
