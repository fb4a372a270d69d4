#include "bench/measure/table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace bench {
namespace {

struct Summary {
    double median_rate = 0;
    double best_rate = 0;
    double processor_cost = 0;
};

Summary summarize(const std::vector<Cost>& costs, const Task& task) {
    std::vector<double> rates;
    std::vector<double> processor_costs;
    for (const Cost& cost : costs) {
        rates.push_back(task.amount / task.unit.rate_scale / cost.time.count());
        processor_costs.push_back(cost.processor.count() * task.unit.cost_scale / task.amount);
    }
    return {median(rates), std::ranges::max(rates), median(processor_costs)};
}

std::string text_of(double value) {
    std::ostringstream text;
    text << std::setprecision(3) << value;
    return text.str();
}

}  // namespace

double median(std::vector<double> values) {
    std::ranges::sort(values);
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double quantile(std::vector<double> values, double share) {
    std::ranges::sort(values);
    const double position = share * static_cast<double>(values.size() - 1);
    return values[static_cast<std::size_t>(std::ceil(position))];
}

void print_comparison(const Task& task, const std::vector<Contender>& contenders,
                      const std::vector<std::vector<Cost>>& costs) {
    std::printf("\n%-36s %10s %10s %11s %8s %8s %8s\n", task.title.c_str(), task.unit.rate, "best",
                task.unit.cost, "ratio", "of best", "of CPU");
    const Summary first = summarize(costs.front(), task);
    for (std::size_t index = 0; index < contenders.size(); ++index) {
        const Summary summary = summarize(costs[index], task);
        const bool is_accounted = contenders[index].is_accounted;
        std::printf("  %-34s %10.0f %10.0f %11s", contenders[index].name.c_str(),
                    summary.median_rate, summary.best_rate,
                    is_accounted ? text_of(summary.processor_cost).c_str() : "");
        if (index > 0) {
            std::printf(
                " %8.2f %8.2f %8s", first.median_rate / summary.median_rate,
                first.best_rate / summary.best_rate,
                is_accounted ? text_of(first.processor_cost / summary.processor_cost).c_str() : "");
        }
        std::printf("\n");
    }
}

}  // namespace bench
