#include "src/command_line/transmit_list_command_line.h"

#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

bool TransmitListCommandLine::do_execute() {
    set_result(NorvaneTransmitService::instance().roster().document(), http_status::ok);
    return true;
}
