#include <chrono>
#include <cstdio>
#include <thread>

#include "bench/measure/process_tree.h"
#include "bench/socket.h"
#include "bench/works/works.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"

namespace bench {
namespace {

constexpr int connection_count = 10'000;
constexpr auto watched_time = std::chrono::seconds(5);

struct Figures {
    double memory = 0;     // bytes of a connection
    double processor = 0;  // seconds of all connections while they were watched
};

// Connections that have asked once, so that they have been taken on, and then say nothing.
Figures watch(const Contender& contender) {
    const std::int64_t memory_before = resident_memory(contender.process);
    std::vector<std::unique_ptr<Client>> clients;
    while (std::ssize(clients) < connection_count) {
        clients.push_back(contender.connect());
        clients.back()->ask();
    }
    Figures figures;
    figures.memory =
        static_cast<double>(resident_memory(contender.process) - memory_before) / connection_count;
    const auto processor_before = processor_time(contender.process);
    std::this_thread::sleep_for(watched_time);
    figures.processor = (processor_time(contender.process) - processor_before).count();
    return figures;
}

}  // namespace

void idle(Stage& stage) {
    std::printf("\n%-36s %10s %17s\n", "10,000 idle connections", "bytes each", "CPU s in 5 s");
    for (const Contender& contender : {stage.server(), stage.nginx().plain()}) {
        const Figures figures = watch(contender);
        std::printf("  %-34s %10.0f %17.2f\n", contender.name.c_str(), figures.memory,
                    figures.processor);
    }
    std::printf("  %-34s %10zu\n", "of the server's: the node itself", sizeof(NorvaneTransmitNode));
}

}  // namespace bench
