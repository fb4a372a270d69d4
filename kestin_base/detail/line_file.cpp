#include "kestin_base/detail/line_file.h"

#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>

#include <cerrno>

#include "kestin_base/detail/descriptor.h"
#include "kestin_base/file_system.h"
#include "kestin_base/path.h"

namespace Kestin::Base::detail {
namespace {

// How long a file that failed is left alone. The sink can sleep up to 150 ms in a failing
// rotation, which must not happen at every line.
constexpr std::chrono::seconds retry_pause{5};

// How long a write may take before other threads give their lines up instead of waiting for it. So
// a disk that hangs holds one thread, and the others for this long once.
constexpr std::chrono::seconds patience{1};

bool create_folder_of(const std::string& path) {
    std::string folder;
    bool is_directory = false;
    kestin_extract_directory(path.c_str(), folder, true);
    kestin_create_directory_recursive(folder);
    const int failure = errno;
    const bool exists = kestin_path_is_directory(folder.c_str(), is_directory);
    errno = exists && !is_directory ? ENOTDIR : failure;
    return exists && is_directory;
}

// Whether the file can be opened now; the sink itself would wait and try again.
bool can_open(const std::string& path) {
    const int mode = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    return create_folder_of(path) &&
           static_cast<bool>(Descriptor(::open(path.c_str(), mode, 0666)));
}

}  // namespace

// The rotating sink, with the identity of the file that it has open.
class LineFile::Sink {
  public:
    explicit Sink(const LineFileSettings& settings)
        : file_(settings.path, settings.size, settings.count, false, remember_identity()) {
        file_.set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
    }

    // Whether the file still stands at its path and has not become shorter. The sink counts what it
    // has written and would take a truncated file for a full one.
    bool is_in_place(const std::string& path) {
        const struct stat before = seen_;
        return ::stat(path.c_str(), &seen_) == 0 && seen_.st_ino == before.st_ino &&
               seen_.st_dev == before.st_dev && seen_.st_size >= before.st_size;
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
            ::fstat(::fileno(stream), &seen_);
        };
        return handlers;
    }

    struct stat seen_ {};
    spdlog::sinks::rotating_file_sink_st file_;
};

// The right to use the file. A thread that doesn't get it in time goes without.
class LineFile::Turn {
  public:
    explicit Turn(LineFile& file) : file_(file) {
        std::unique_lock hold(file_.mutex_);
        is_taken_ = file_.turn_end_.wait_until(hold, file_.turn_begin_ + patience,
                                               [this] { return !file_.is_busy_; });
        if (is_taken_) {
            file_.is_busy_ = true;
            file_.turn_begin_ = Clock::now();
        }
    }
    ~Turn() {
        if (is_taken_) {
            const std::lock_guard hold(file_.mutex_);
            file_.is_busy_ = false;
            file_.turn_end_.notify_one();
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return is_taken_; }

  private:
    LineFile& file_;
    bool is_taken_ = false;
};

LineFile::LineFile() = default;
LineFile::~LineFile() = default;

bool LineFile::open(const LineFileSettings& settings) {
    const Turn turn(*this);
    if (!turn) {
        return false;
    }
    settings_ = settings;
    lost_lines_ = 0;
    is_open_ = reopen();
    return is_open_;
}

// A file whose disk hangs stays open.
void LineFile::close() {
    if (!is_open_.exchange(false)) {
        return;
    }
    if (const Turn turn(*this); turn) {
        if (ready()) {
            add_loss();
        }
        sink_.reset();
    }
}

void LineFile::write(std::string_view text) {
    if (!is_open_) {
        return;
    }
    const Turn turn(*this);
    if (!turn || !ready() || !add_loss() || !add(text)) {
        ++lost_lines_;
    }
}

bool LineFile::add(std::string_view text) {
    try {
        sink_->write(text);
        return true;
    } catch (const std::exception&) {
        give_up();
        return false;
    }
}

// Where lines are missing, a line says so.
bool LineFile::add_loss() {
    const std::uint64_t lost = lost_lines_.exchange(0);
    if (lost == 0 || add(" Warning kestin_base LineFile::add_loss " + std::to_string(__LINE__) +
                         ' ' + std::to_string(lost) + " lines are missing here")) {
        return true;
    }
    lost_lines_ += lost;
    return false;
}

bool LineFile::ready() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_look_) {
        return sink_ != nullptr;
    }
    next_look_ = now + settings_.look_pause;
    return (sink_ != nullptr && sink_->is_in_place(settings_.path)) || reopen();
}

bool LineFile::reopen() {
    give_up();
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

}  // namespace Kestin::Base::detail
