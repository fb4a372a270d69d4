#include <tuple>

#include "client/cli/server_report.h"
#include "client/listing.h"
#include "fuzz/fuzz_target.h"

// A server can say anything to the client: its documents are read or refused.
void run(std::string_view input) {
    std::ignore = transmit::parse_listing(input);
    std::ignore = transmit::parse_storages(input);
    transmit::cli::read_nodes(input);
    transmit::cli::read_statistics(input);
}
