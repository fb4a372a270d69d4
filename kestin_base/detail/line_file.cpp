#include "kestin_base/detail/line_file.h"

#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>

#include <algorithm>

#include "kestin_base/detail/descriptor.h"
#include "kestin_base/detail/printf_format.h"
#include "kestin_base/file_system.h"
#include "kestin_base/path.h"

namespace Kestin::Base::detail {
namespace {

// How long a file that failed is left alone. The sink can sleep up to 150 ms in a failing
// rotation, which must not happen at every line.
constexpr std::chrono::seconds retry_pause{5};

// Whether the file can be opened now; the sink itself would wait and try again.
bool can_open(const std::string& path) {
    const int mode = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    return static_cast<bool>(Descriptor(::open(path.c_str(), mode, 0666)));
}

bool is_control(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

void append_escaped(unsigned char byte, std::string& text) {
    constexpr const char* digits = "0123456789ABCDEF";
    text += "\\x";
    text += digits[byte >> 4U];
    text += digits[byte & 0xfU];
}

}  // namespace

// The rotating sink, with the identity of the file that it has open.
class LineFile::Sink {
  public:
    explicit Sink(const LineFileSettings& settings)
        : file_(settings.path, settings.size, settings.count, false, remember_identity()) {
        file_.set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
    }

    bool stands_at(const std::string& path) const {
        struct stat facts {};
        return ::stat(path.c_str(), &facts) == 0 && facts.st_ino == opened_.st_ino &&
               facts.st_dev == opened_.st_dev;
    }

    void write(std::string_view text) {
        const spdlog::string_view_t line(text.data(), text.size());
        file_.log({spdlog::string_view_t(), spdlog::level::info, line});
        file_.flush();
    }

  private:
    spdlog::file_event_handlers remember_identity() {
        spdlog::file_event_handlers handlers;
        handlers.after_open = [this](const spdlog::filename_t& /*name*/, std::FILE* stream) {
            ::fstat(::fileno(stream), &opened_);
        };
        return handlers;
    }

    struct stat opened_ {};
    spdlog::sinks::rotating_file_sink_st file_;
};

LineFile::LineFile() = default;
LineFile::~LineFile() = default;

bool LineFile::open(const LineFileSettings& settings) {
    const std::lock_guard hold(mutex_);
    settings_ = settings;
    if (!reopen()) {
        settings_ = {};
        return false;
    }
    return true;
}

void LineFile::close() {
    const std::lock_guard hold(mutex_);
    sink_.reset();
    settings_ = {};
}

void LineFile::write(std::string_view text) {
    const std::lock_guard hold(mutex_);
    if (!ready()) {
        return;
    }
    try {
        sink_->write(text);
    } catch (const std::exception&) {
        give_up();
    }
}

bool LineFile::ready() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_look_) {
        return sink_ != nullptr;
    }
    next_look_ = now + settings_.look_pause;
    const bool is_in_place = sink_ != nullptr && sink_->stands_at(settings_.path);
    return is_in_place || (!settings_.path.empty() && reopen());
}

bool LineFile::reopen() {
    give_up();
    std::string folder;
    kestin_extract_directory(settings_.path.c_str(), folder, true);
    kestin_create_directory_recursive(folder);
    if (can_open(settings_.path)) {
        try {
            sink_ = std::make_unique<Sink>(settings_);
            next_look_ = std::chrono::steady_clock::now() + settings_.look_pause;
        } catch (const std::exception&) {
            give_up();
        }
    }
    return sink_ != nullptr;
}

void LineFile::give_up() {
    sink_.reset();
    next_look_ = std::chrono::steady_clock::now() + retry_pause;
}

void append_message(std::string& line, const char* format, va_list arguments) {
    const std::string whole = format_text(format, arguments);
    const std::string_view kept = std::string_view(whole).substr(0, max_message_size);
    for (auto at = kept.begin(); at != kept.end();) {
        const auto control = std::find_if(at, kept.end(), is_control);
        line.append(at, control);
        at = control;
        if (at != kept.end()) {
            append_escaped(static_cast<unsigned char>(*at++), line);
        }
    }
    if (kept.size() < whole.size()) {
        line += " ... (cut, " + std::to_string(whole.size()) + " bytes)";
    }
}

}  // namespace Kestin::Base::detail
