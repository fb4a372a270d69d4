#pragma once

#include <string>
#include <vector>

#include "bench/measure/rounds.h"

namespace bench {

double median(std::vector<double> values);
// The value that the given share (0.99, say) of all values doesn't exceed.
double quantile(std::vector<double> values, double share);

// One row a contender: median and best rate, the processor's cost, and, in the rows behind the
// first, the first contender's figures divided by theirs.
void print_comparison(const Task& task, const std::vector<Contender>& contenders,
                      const std::vector<std::vector<Cost>>& costs);

}  // namespace bench
