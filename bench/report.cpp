#include "bench/report.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double mebibyte = 1 << 20;
constexpr double gibibyte = 1 << 30;

double median(std::vector<double> values) {
    std::ranges::sort(values);
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

std::string name_of(const Transfer& transfer) {
    return std::string(transfer.direction == Direction::down ? "download" : "upload") +
           (transfer.encrypted ? ", encrypted" : "");
}

Summary summarize(const std::vector<Cost>& costs, const Transfer& transfer) {
    std::vector<double> speeds;
    std::vector<double> processor_costs;
    const auto size = static_cast<double>(transfer.size);
    for (const Cost& cost : costs) {
        speeds.push_back(size / mebibyte / cost.time.count());
        processor_costs.push_back(cost.processor.count() * gibibyte / size);
    }
    return {median(speeds), std::ranges::max(speeds), median(processor_costs)};
}

void print_comparison_heading() {
    std::printf("%-21s %23s %23s %15s %21s\n", "", "server, MiB/s", "raw limit, MiB/s", "ratio",
                "CPU s/GiB");
    std::printf("%-21s %11s %11s %11s %11s %7s %7s %10s %10s\n", "", "median", "best", "median",
                "best", "median", "best", "server", "limit");
}

void print_comparison(const Transfer& transfer, const Summary& server, const Summary& limit) {
    std::printf("%-21s %11.0f %11.0f %11.0f %11.0f %7.2f %7.2f %10.2f %10.2f\n",
                name_of(transfer).c_str(), server.median_speed, server.best_speed,
                limit.median_speed, limit.best_speed, server.median_speed / limit.median_speed,
                server.best_speed / limit.best_speed, server.processor_cost, limit.processor_cost);
}

void print_server_heading() {
    std::printf("\n%-21s %-21s %11s %11s %10s\n", "", "", "median", "best", "CPU s/GiB");
}

void print_server(const std::string& circumstances, const Transfer& transfer,
                  const Summary& server) {
    std::printf("%-21s %-21s %11.0f %11.0f %10.2f\n", circumstances.c_str(),
                name_of(transfer).c_str(), server.median_speed, server.best_speed,
                server.processor_cost);
}
