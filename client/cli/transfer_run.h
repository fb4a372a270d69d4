#pragma once

#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
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

// Of two files of a batch that would come to the same place the later one is refused: they would
// spoil each other. `place_of` takes a job and gives its place as text.
template <typename Batch, typename PlaceOf>
void refuse_doubles(Batch& batch, PlaceOf place_of) {
    std::unordered_set<std::string> places;
    const auto is_double = [&](const auto& job) {
        const bool first = places.insert(place_of(job)).second;
        if (!first) {
            batch.refused.push_back({place_of(job),
                                     {ErrorKind::invalid_request, 0,
                                      "another file of this command goes to the same place"}});
        }
        return !first;
    };
    std::erase_if(batch.files, is_double);
}

// Tells what ended a transfer before its files, and how it goes on. Gives the exit code.
ExitCode report_stop(const Common& common, const TransferCommand& command, const std::string& path,
                     const Error& error);

// Moves what is planned, shows how it goes and tells how it ended.
ExitCode run_transfer(const Common& common, const TransferCommand& command,
                      const TransferPlan& plan);

}  // namespace transmit::cli
