#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/measure/table.h"
#include "bench/works/works.h"

namespace bench {
namespace {

constexpr int single_count = 20'000;
constexpr int ahead_count = 128'000;

// How many requests the latency is taken of, beside how many downloads.
constexpr int timed_count = 3000;
constexpr int download_count = 2;

// Downloads of the source, one after the other, until it goes.
class Downloads {
  public:
    Downloads(const Contender& contender, std::int64_t size) {
        for (int index = 0; index < download_count; ++index) {
            threads_.emplace_back([this, client = contender.connect(), size] {
                while (!stopping_) {
                    client->download("source", size);
                }
            });
        }
    }
    ~Downloads() { stopping_ = true; }

  private:
    std::atomic<bool> stopping_ = false;
    std::vector<std::jthread> threads_;
};

std::vector<double> microseconds_of_requests(const Contender& contender, std::int64_t size) {
    const auto client = contender.connect();
    const Downloads downloads(contender, size);
    std::vector<double> times;
    while (std::ssize(times) < timed_count) {
        const auto start = std::chrono::steady_clock::now();
        client->ask();
        const std::chrono::duration<double, std::micro> time =
            std::chrono::steady_clock::now() - start;
        times.push_back(time.count());
    }
    return times;
}

}  // namespace

void requests(Stage& stage) {
    const std::vector<Contender> contenders = {stage.server(), stage.raw_limit(),
                                               stage.nginx().plain()};
    stage.compare({.title = "requests, one at a time",
                   .unit = operations,
                   .amount = single_count,
                   .work =
                       [](Client& client, int) {
                           for (int index = 0; index < single_count; ++index) {
                               client.ask();
                           }
                       }},
                  contenders);
    stage.compare({.title = "requests sent ahead",
                   .unit = operations,
                   .amount = ahead_count,
                   .work =
                       [](Client& client, int) {
                           client.ask_ahead(ahead_count);
                       }},
                  contenders);
}

void latency(Stage& stage) {
    const std::int64_t size = stage.options().size << 20;
    stage.workspace().make_file("source", size);
    const std::vector<Contender> contenders = {stage.server(), stage.nginx().plain()};
    std::vector<std::vector<double>> times(contenders.size());
    for (int round = 0; round < stage.options().rounds; ++round) {
        for (std::size_t index = 0; index < contenders.size(); ++index) {
            const auto more = microseconds_of_requests(contenders[index], size);
            times[index].insert(times[index].end(), more.begin(), more.end());
        }
    }
    std::printf("\n%-36s %10s %10s %11s\n", "a request beside 2 downloads, us", "median", "p99",
                "longest");
    for (std::size_t index = 0; index < contenders.size(); ++index) {
        std::printf("  %-34s %10.0f %10.0f %11.0f\n", contenders[index].name.c_str(),
                    median(times[index]), quantile(times[index], 0.99),
                    std::ranges::max(times[index]));
    }
}

}  // namespace bench
