#include "src/command_line/transmit_list_command_line.h"

#include <utility>

#include "src/command_line/documents.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

bool TransmitListCommandLine::do_execute() {
    std::list<NodeRecord> records;
    NorvaneTransmitService::instance().get_transmit_info(records);
    std::string document;
    make_transmit_list_document(records, document);
    set_result(std::move(document), http_status::ok);
    return true;
}
