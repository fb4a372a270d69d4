#include "kestin_base/record.h"

#include <cerrno>
#include <cstdarg>
#include <new>

#include "kestin_base/detail/line_file.h"
#include "kestin_base/detail/log_text.h"
#include "kestin_base/strings.h"

namespace Kestin::Base {
namespace {

constexpr std::size_t record_size = std::size_t{64} << 20U;
constexpr std::size_t record_count = 64;

// Outlives the singleton, so that an entry at the process's end does no harm.
detail::LineFile& record_file() {
    static auto& file = *new detail::LineFile;
    return file;
}

}  // namespace

Record& Record::instance() {
    static Record record;
    return record;
}

Record::Record() {
    record_file();
}

Record::~Record() {
    record_file().close();
}

bool Record::init(const std::string& root) {
    const std::string path = root + "log/record.log";
    const bool is_open =
        record_file().open({.path = path, .size = record_size, .count = record_count});
    failure_ = is_open ? "" : path + ": " + kestin_error_text(errno);
    return is_open;
}

void Record::exit() {
    record_file().close();
}

void Record::append(bool success, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    try {
        std::string text = success ? "success " : "failure ";
        detail::append_message(text, format, arguments);
        record_file().write(text);
    } catch (const std::bad_alloc&) {
        // The entry is lost.
    }
    va_end(arguments);
}

}  // namespace Kestin::Base
