#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

// How far a batch of transfers has come. Pure: the time is told.
namespace transmit::cli {

using Clock = std::chrono::steady_clock;

// Bytes per second over the last ten seconds.
class SpeedWindow {
  public:
    static constexpr std::chrono::seconds length{10};

    explicit SpeedWindow(Clock::time_point start) : samples_{{start, 0}} {}

    void add(std::int64_t bytes, Clock::time_point now);
    // 0 until some time has passed.
    double bytes_per_second(Clock::time_point now) const;

  private:
    struct Sample {
        Clock::time_point time;
        std::int64_t bytes;  // up to then
    };
    // The last one that is at least `length` old leads.
    std::deque<Sample> samples_;
    std::int64_t bytes_ = 0;
};

// What stands in the way of a file: since when, or when it is tried again.
struct Hindrance {
    std::string reason;
    std::optional<Clock::time_point> since;
    std::optional<Clock::time_point> next_attempt;
    std::optional<Clock::time_point> last_attempt;  // none are made after it
};

// One file that is under way.
struct RunningFile {
    std::size_t file;  // its place in the batch
    std::int64_t done = 0;
    std::int64_t total = 0;
    SpeedWindow speed;
    std::optional<Hindrance> hindrance;
};

// A file of a batch; its size if it is known before it begins.
struct BatchFile {
    std::string name;
    std::optional<std::int64_t> size;
};

// What a batch has to tell of itself while it runs. A file is told by its place in the list.
class BatchProgress {
  public:
    BatchProgress(std::vector<BatchFile> files, Clock::time_point now);

    // What is told of a file that isn't running starts it.
    void start(std::size_t file, Clock::time_point now) { running(file, now); }
    // `done` of `total` bytes; `already` of them were there before this run.
    void advance(std::size_t file, std::int64_t done, std::int64_t total, std::int64_t already,
                 Clock::time_point now);
    void hinder(std::size_t file, Hindrance hindrance, Clock::time_point now);
    void finish(std::size_t file, std::int64_t size);
    void fail(std::size_t file);

    const std::string& name(std::size_t file) const { return files_[file].name; }
    // In the order in which they began.
    const std::list<RunningFile>& running() const { return running_; }

    std::size_t files() const { return files_.size(); }
    std::size_t finished() const { return finished_; }
    std::size_t failed() const { return failed_; }
    // Bytes of all files; `total` as far as sizes are known.
    std::int64_t done() const;
    std::int64_t total() const { return total_; }
    double bytes_per_second(Clock::time_point now) const { return speed_.bytes_per_second(now); }
    std::chrono::seconds elapsed(Clock::time_point now) const;

  private:
    RunningFile& running(std::size_t file, Clock::time_point now);
    void set_size(std::size_t file, std::int64_t size);
    void forget(std::size_t file);

    std::vector<BatchFile> files_;
    std::list<RunningFile> running_;  // hundreds, if they are small
    std::unordered_map<std::size_t, std::list<RunningFile>::iterator> place_of_;
    std::size_t finished_ = 0;
    std::size_t failed_ = 0;
    std::int64_t finished_bytes_ = 0;
    std::int64_t total_ = 0;
    SpeedWindow speed_;
    Clock::time_point start_;
};

}  // namespace transmit::cli
