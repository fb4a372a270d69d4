#pragma once

#include "src/command_line/pooled_command_line.h"

// "transmit_statistics": the totals over all connected nodes.
class TransmitStatisticsCommandLine : public PooledCommandLine<TransmitStatisticsCommandLine> {
  protected:
    bool do_execute() override;
};
