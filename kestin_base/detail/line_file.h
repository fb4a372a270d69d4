#pragma once

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "kestin_base/uncopy.h"

namespace Kestin::Base::detail {

// Where lines go, and how much of them is kept: at `size` bytes the file becomes "name.1.log", the
// file of that name "name.2.log", and so on up to `count`; older ones are deleted.
struct LineFileSettings {
    std::string path;
    std::size_t size = 0;
    std::size_t count = 0;
    // How long a file that is being written counts as standing at its path without another look: a
    // look costs more than a line.
    std::chrono::steady_clock::duration look_pause = std::chrono::seconds(1);
};

// A file that takes whole lines, each headed by local date and time with milliseconds. Callable
// from every thread.
class LineFile : private Uncopy {
  public:
    LineFile();
    ~LineFile();

    // False, with nothing open: the file can't be opened. Its folders are made where they lack.
    bool open(const LineFileSettings& settings);
    void close();

    // Adds one line, which is in the file when the call returns. Does nothing while no file is
    // open. A line that can't be written is lost, and so are those of the `retry_pause` behind it.
    // A file that no longer stands at its path, moved away or deleted, is given up for a new one at
    // the next look.
    void write(std::string_view text);

  private:
    class Sink;

    bool ready();
    bool reopen();
    void give_up();

    std::mutex mutex_;  // held for all that follows
    LineFileSettings settings_;
    std::unique_ptr<Sink> sink_;
    std::chrono::steady_clock::time_point next_look_;
};

// The longest message of a line in bytes; of a longer one the rest is cut, and the line says so.
inline constexpr std::size_t max_message_size = 8192;

// Appends a message to what a line holds so far: formatted, its control bytes shown as \xHH, cut at
// the bound.
void append_message(std::string& line, const char* format, va_list arguments);

}  // namespace Kestin::Base::detail
