// All process singletons are built before `main` begins, in this order, and destroyed in the
// reverse order when it has ended.

#include "kestin_base/log.h"
#include "kestin_base/record.h"
#include "kestin_net/net_switch.h"
#include "src/command_line/command_line_factory.h"
#include "src/command_line/transmit_list_command_line.h"
#include "src/command_line/transmit_statistics_command_line.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

bool build_singletons() noexcept {
    Kestin::Net::NetSwitch::instance();
    NorvaneTransmitService::instance();
    Kestin::Base::Record::instance();
    Kestin::Base::LogSwitch::instance();
    TransmitListCommandLine::pool();
    TransmitStatisticsCommandLine::pool();
    CommandLineFactory::instance();
    node_pool();
    return true;
}

[[maybe_unused]] const bool singletons_stand = build_singletons();

}  // namespace
