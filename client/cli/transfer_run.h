#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/batch.h"
#include "client/cli/commands.h"
#include "client/cli/transfer_reporter.h"

namespace transmit::cli {

// One file of put or get: what it is called, and its size if that is known.
struct PlannedFile {
    TransferNames names;
    std::optional<std::int64_t> size;
};

// What put or get have made of their names.
struct TransferPlan {
    Endpoint server;
    std::vector<PlannedFile> files;  // in the order of the batch
    const char* done;                // "sent", "fetched"
    std::function<TransferSummary(const Server&, const TransferOptions&, TransferObserver&)> move;
};

// Moves what is planned, shows how it goes and tells how it ended.
ExitCode run_transfer(const Common& common, const TransferCommand& command,
                      const TransferPlan& plan);

}  // namespace transmit::cli
