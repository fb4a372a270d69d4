#include "bench/rounds.h"

#include <filesystem>

#include "bench/driver.h"

Cost measure(const Contender& contender, const Transfer& transfer) {
    const auto processor_before = contender.process->processor_time();
    Cost cost;
    cost.time = drive(contender.port, transfer);
    cost.processor = contender.process->processor_time() - processor_before;
    std::filesystem::remove(contender.folder + target_name);
    return cost;
}

std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders,
                                         const Transfer& transfer, int rounds) {
    for (const Contender& contender : contenders) {
        measure(contender, transfer);
    }
    std::vector<std::vector<Cost>> costs(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            costs[i].push_back(measure(contenders[i], transfer));
        }
    }
    return costs;
}
