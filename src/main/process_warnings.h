#pragma once

#include "src/shared/operation_log.h"

// Warns in the run log if the process runs as root or with umask 0.
void warn_of_process(const OperationLog& log);
