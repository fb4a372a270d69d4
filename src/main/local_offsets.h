#pragma once

#include <array>
#include <cstddef>
#include <ctime>

// How far the local time is from UTC, told beforehand for where it can't be asked for: localtime
// may not be called in a signal handler.
class LocalOffsets {
  public:
    // Finds the offset at `now` and the changes of the coming years.
    void load(std::time_t now);

    // Seconds to add to the UTC time `at`, which lies at or behind the `now` of the load.
    long at(std::time_t at) const;

  private:
    struct Change {
        std::time_t since = 0;
        long offset = 0;
    };

    static constexpr int years_ahead = 10;

    void add(std::time_t since, long offset);

    std::array<Change, std::size_t{4} * years_ahead> changes_{};
    std::size_t count_ = 0;
};
