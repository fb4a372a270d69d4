#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/clients/http_client.h"
#include "bench/measure/table.h"
#include "bench/works/works.h"

namespace bench {
namespace {

constexpr int node_count = 10'000;
constexpr int document_count = 20;

using Milliseconds = std::chrono::duration<double, std::milli>;

double time_of(Client& client) {
    const auto start = std::chrono::steady_clock::now();
    client.ask();
    return Milliseconds(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

void node_list(Stage& stage) {
    const Contender server = stage.server();
    std::vector<std::unique_ptr<Client>> nodes;
    while (std::ssize(nodes) < node_count) {
        nodes.push_back(server.connect());
        nodes.back()->ask();
    }
    const std::uint16_t port = stage.running_server().command_port();
    std::vector<double> documents;
    std::vector<double> others;
    {
        std::atomic<bool> stopping = false;
        const std::jthread asking([&] {
            while (!stopping) {
                others.push_back(time_of(*nodes.front()));
            }
        });
        for (int index = 0; index < document_count; ++index) {
            HttpClient monitor({.port = port, .page = "/sys/transmit_list"});
            documents.push_back(time_of(monitor));
            // The server makes the list anew when the last one is a second old.
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        stopping = true;
    }
    std::printf("\n%-36s %10s %10s %11s\n", "10,000 nodes, ms", "median", "p99", "longest");
    for (const auto& [name, times] :
         {std::pair("transmit_list", documents), std::pair("a request beside it", others)}) {
        std::printf("  %-34s %10.3f %10.3f %11.3f\n", name, median(times), quantile(times, 0.99),
                    std::ranges::max(times));
    }
}

}  // namespace bench
