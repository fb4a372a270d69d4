#pragma once

#include "src/command_line/pooled_command_line.h"

// "transmit_list": the figures of every connected node.
class TransmitListCommandLine : public PooledCommandLine<TransmitListCommandLine> {
  protected:
    bool do_execute() override;
};
