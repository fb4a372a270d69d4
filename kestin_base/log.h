#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "kestin_base/detail/printf_format.h"
#include "kestin_base/uncopy.h"

// The level of a log line.
enum KESTIN_LOG_LEVEL {
    KESTIN_LOG_CRITICAL = 0,
    KESTIN_LOG_ERROR = 1,
    KESTIN_LOG_WARNING = 2,
    KESTIN_LOG_DEBUG = 3,
    KESTIN_LOG_TRACK = 4,
};

namespace Kestin::Base {

// The two logs of the process, "run" and "debug". Process singleton.
class LogSwitch : private Uncopy {
  public:
    static LogSwitch& instance();

    // Starts both logs from the settings file `<root>cfg/log.ini`; relative log files count from
    // the folder above the one that holds it. Returns false if the file is missing or faulty, or
    // names a log file that can't be opened. `failure` then says which, in words for a person.
    bool init(const char* config_path);
    const std::string& failure() const { return failure_; }
    void exit();

  private:
    LogSwitch();
    ~LogSwitch();

    std::string failure_;
};

namespace detail {

enum class LogName { run, debug };

// Where a line comes from. The texts live as long as the process.
struct LogOrigin {
    const char* file;
    const char* class_name;  // null for a function outside a class, or one that is given qualified
    const char* function;
    std::uint64_t line;
    std::uint64_t session = 0;  // heads the message as "[number] "; 0: no session
    int cause = 0;              // the errno of a system call that failed; 0: no such call
};

// Writes one line to a log: local date and time with milliseconds, the level's eight-character
// label, file, function, line and the message. Control bytes of the message are shown as \xHH, so
// that no client's text can forge a line. With a cause, a second line repeats the message and adds
// what errno means. The lines are in the file when the call returns. A full or unwritable disk, or
// a lack of memory, loses the lines and nothing else. Does nothing before LogSwitch::init and after
// LogSwitch::exit.
void write_log(LogName log, KESTIN_LOG_LEVEL level, const LogOrigin& origin, const char* format,
               ...) noexcept;

}  // namespace detail
}  // namespace Kestin::Base

// Write one line to the run log or the debug log; callable from every thread at once, never fail
// towards the caller. `format` is checked against its arguments by the compiler
// (detail/printf_format.h).
template <typename... Arguments>
void kestin_run_log(KESTIN_LOG_LEVEL level, const char* file, const char* function,
                    std::uint64_t line,
                    Kestin::Base::detail::PrintfFormat<std::type_identity_t<Arguments>...> format,
                    Arguments... arguments) {
    Kestin::Base::detail::write_log(Kestin::Base::detail::LogName::run, level,
                                    {file, nullptr, function, line}, format.text(), arguments...);
}

template <typename... Arguments>
void kestin_debug_log(KESTIN_LOG_LEVEL level, const char* file, const char* function,
                      std::uint64_t line,
                      Kestin::Base::detail::PrintfFormat<std::type_identity_t<Arguments>...> format,
                      Arguments... arguments) {
    Kestin::Base::detail::write_log(Kestin::Base::detail::LogName::debug, level,
                                    {file, nullptr, function, line}, format.text(), arguments...);
}
