#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
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

    // Creates the folders of the file where they are missing. Returns false, with nothing open, if
    // the file can't be opened; errno then says why.
    bool open(const LineFileSettings& settings);
    void close();

    // Adds one line, which is in the file when the call returns. Does nothing while no file is
    // open. A line that can't be written is lost: the disk refuses it, did so in the last few
    // seconds, or hangs in another thread's write. The next line that can be written comes after
    // one that tells how many are missing. A file that was moved away, deleted or truncated is
    // given up for a new one at the next look.
    void write(std::string_view text);

  private:
    class Sink;

    using Clock = std::chrono::steady_clock;
    class Turn;

    bool add(std::string_view text);
    bool add_loss();
    bool ready();
    bool reopen();
    void give_up();

    std::atomic<bool> is_open_ = false;
    std::atomic<std::uint64_t> lost_lines_ = 0;

    std::mutex mutex_;  // held for the three that follow
    std::condition_variable turn_end_;
    bool is_busy_ = false;
    Clock::time_point turn_begin_;

    // For the thread whose turn it is.
    LineFileSettings settings_;
    std::unique_ptr<Sink> sink_;
    Clock::time_point next_look_;
};

}  // namespace Kestin::Base::detail
