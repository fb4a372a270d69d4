#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "bench/contender.h"

namespace bench {

// In what work is counted, and how its figures are shown.
struct Unit {
    const char* rate;   // name of the rate
    double rate_scale;  // as many of the unit as one of the rate's
    const char* cost;   // name of the processor's cost
    double cost_scale;  // as many of the unit as one of the cost's
};
inline constexpr Unit bytes{"MiB/s", 1 << 20, "CPU s/GiB", 1 << 30};
inline constexpr Unit operations{"1/s", 1, "CPU s/1000", 1000};

// A piece of work that `streams` clients do at once, each on a connection of its own.
struct Task {
    std::string title;
    Unit unit = bytes;
    double amount = 0;  // of all streams together
    int streams = 1;
    std::function<void(Client& client, int stream)> work = {};
    std::function<void()> clean_up = [] {
    };
};

// What doing it once took; connecting doesn't count.
struct Cost {
    std::chrono::duration<double> time{};       // until the last client is done
    std::chrono::duration<double> processor{};  // of the serving processes
};

Cost measure(const Contender& contender, const Task& task);

// Lets the contenders take turns, so that what else the machine does falls on all of them; before
// the first turn each does the task once for nothing. One list of costs for each contender.
std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders, const Task& task,
                                         int rounds);

}  // namespace bench
