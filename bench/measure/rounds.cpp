#include "bench/measure/rounds.h"

#include <future>
#include <latch>
#include <memory>

#include "bench/measure/process_tree.h"

namespace bench {
namespace {

using Clients = std::vector<std::unique_ptr<Client>>;

// All clients work at once; the time from their common start to the last one's end.
std::chrono::duration<double> run(const Clients& clients, const Task& task) {
    std::latch start(static_cast<std::ptrdiff_t>(clients.size()) + 1);
    std::vector<std::future<void>> running;
    for (int stream = 0; const auto& client : clients) {
        running.push_back(std::async(std::launch::async, [&, stream] {
            start.arrive_and_wait();
            task.work(*client, stream);
        }));
        ++stream;
    }
    start.arrive_and_wait();
    const auto begin = std::chrono::steady_clock::now();
    for (std::future<void>& client : running) {
        client.get();
    }
    return std::chrono::steady_clock::now() - begin;
}

}  // namespace

Cost measure(const Contender& contender, const Task& task) {
    Clients clients;
    while (static_cast<int>(clients.size()) < task.streams) {
        clients.push_back(contender.connect());
    }
    const auto processor_before = processor_time(contender.process);
    Cost cost;
    cost.time = run(clients, task);
    cost.processor = processor_time(contender.process) - processor_before;
    clients.clear();
    task.clean_up();
    return cost;
}

std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders, const Task& task,
                                         int rounds) {
    for (const Contender& contender : contenders) {
        measure(contender, task);
    }
    std::vector<std::vector<Cost>> costs(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t index = 0; index < contenders.size(); ++index) {
            costs[index].push_back(measure(contenders[index], task));
        }
    }
    return costs;
}

}  // namespace bench
