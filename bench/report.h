#pragma once

#include <string>
#include <vector>

#include "bench/transfer.h"

// What several rounds of one transfer come to.
struct Summary {
    double median_speed = 0;    // MiB/s
    double best_speed = 0;      // MiB/s
    double processor_cost = 0;  // seconds per GiB, median
};

Summary summarize(const std::vector<Cost>& costs, const Transfer& transfer);

// The table of the server against the raw limit.
void print_comparison_heading();
void print_comparison(const Transfer& transfer, const Summary& server, const Summary& limit);

// The table of the server alone under changing circumstances.
void print_server_heading();
void print_server(const std::string& circumstances, const Transfer& transfer,
                  const Summary& server);
