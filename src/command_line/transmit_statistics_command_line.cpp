#include "src/command_line/transmit_statistics_command_line.h"

#include <utility>

#include "src/command_line/documents.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

bool TransmitStatisticsCommandLine::do_execute() {
    // The totals are as old as the records: asking for those brings both up to date.
    std::list<NodeRecord> records;
    NorvaneTransmitService::instance().get_transmit_info(records);
    TransmitStatistics statistics;
    NorvaneTransmitService::instance().get_transmit_statistics(statistics);
    std::string document;
    make_transmit_statistics_document(statistics, document);
    set_result(std::move(document), http_status::ok);
    return true;
}
