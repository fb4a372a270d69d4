#include "client/cli/progress.h"

#include <algorithm>
#include <iterator>

namespace transmit::cli {
namespace {

using std::chrono::milliseconds;

// How far apart samples are: finer ones would tell nothing more.
constexpr milliseconds grain{200};
// Before that a speed is a guess.
constexpr milliseconds shortest{500};

}  // namespace

void SpeedWindow::add(std::int64_t bytes, Clock::time_point now) {
    bytes_ += bytes;
    if (now - samples_.back().time >= grain) {
        samples_.push_back({now, bytes_});
    }
    while (samples_.size() > 1 && now - samples_[1].time >= length) {
        samples_.pop_front();
    }
}

double SpeedWindow::bytes_per_second(Clock::time_point now) const {
    const auto old = std::find_if(samples_.rbegin(), samples_.rend(), [now](const Sample& sample) {
        return now - sample.time >= length;
    });
    const Sample& from = old == samples_.rend() ? samples_.front() : *old;
    const std::chrono::duration<double> seconds = now - from.time;
    return seconds >= shortest ? static_cast<double>(bytes_ - from.bytes) / seconds.count() : 0;
}

BatchProgress::BatchProgress(std::vector<BatchFile> files, Clock::time_point now)
    : files_(std::move(files)), speed_(now), start_(now) {
    for (const BatchFile& file : files_) {
        total_ += file.size.value_or(0);
    }
}

// What was there before, and what is sent once more, is no speed.
void BatchProgress::advance(std::size_t file, std::int64_t done, std::int64_t total,
                            std::int64_t already, Clock::time_point now) {
    RunningFile& one = running(file, now);
    const std::int64_t moved = std::max<std::int64_t>(0, done - std::max(one.done, already));
    one.done = done;
    one.total = total;
    one.speed.add(moved, now);
    one.hindrance.reset();
    speed_.add(moved, now);
    set_size(file, total);
}

void BatchProgress::hinder(std::size_t file, Hindrance hindrance, Clock::time_point now) {
    running(file, now).hindrance = std::move(hindrance);
}

void BatchProgress::finish(std::size_t file, std::int64_t size) {
    set_size(file, size);
    forget(file);
    finished_bytes_ += size;
    ++finished_;
}

void BatchProgress::fail(std::size_t file) {
    set_size(file, 0);
    forget(file);
    ++failed_;
}

std::int64_t BatchProgress::done() const {
    std::int64_t done = finished_bytes_;
    for (const RunningFile& file : running_) {
        done += file.done;
    }
    return done;
}

std::chrono::seconds BatchProgress::elapsed(Clock::time_point now) const {
    return std::chrono::duration_cast<std::chrono::seconds>(now - start_);
}

RunningFile& BatchProgress::running(std::size_t file, Clock::time_point now) {
    const auto [found, is_new] = place_of_.try_emplace(file);
    if (is_new) {
        running_.push_back({file, 0, files_[file].size.value_or(0), SpeedWindow(now), {}});
        found->second = std::prev(running_.end());
    }
    return *found->second;
}

void BatchProgress::set_size(std::size_t file, std::int64_t size) {
    total_ += size - files_[file].size.value_or(0);
    files_[file].size = size;
}

void BatchProgress::forget(std::size_t file) {
    if (const auto found = place_of_.extract(file)) {
        running_.erase(found.mapped());
    }
}

}  // namespace transmit::cli
