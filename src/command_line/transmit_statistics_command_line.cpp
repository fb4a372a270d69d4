#include "src/command_line/transmit_statistics_command_line.h"

#include <utility>

#include "src/command_line/documents.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

bool TransmitStatisticsCommandLine::do_execute() {
    auto& service = NorvaneTransmitService::instance();
    service.roster().refresh_if_due();
    TransmitStatistics statistics;
    service.get_transmit_statistics(statistics);
    std::string document;
    make_transmit_statistics_document(statistics, document);
    set_result(std::make_shared<const std::string>(std::move(document)), http_status::ok);
    return true;
}
