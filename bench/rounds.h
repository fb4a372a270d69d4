#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/transfer.h"
#include "tests/support/child_process.h"

// A process that serves the wire on a port, and the folder where it keeps its files.
struct Contender {
    std::uint16_t port;
    std::string folder;
    support::ChildProcess* process;
};

// Moves one file and gives what it took. The target of an upload is gone afterwards.
Cost measure(const Contender& contender, const Transfer& transfer);

// Lets the contenders take turns, so that what else the machine does falls on all of them; before
// the first turn each moves the file once for nothing. One list of costs for each contender.
std::vector<std::vector<Cost>> alternate(const std::vector<Contender>& contenders,
                                         const Transfer& transfer, int rounds);
