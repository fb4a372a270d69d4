#pragma once

#include <string>

#include "src/norvane_transmit_service/storage.h"
#include "src/shared/operation_log.h"

// Warns in the run log of each storage whose folder is missing, is on a file system without locks,
// or holds the program's own folder, `root`, which clients could then read, change and delete.
void warn_of_storages(const OperationLog& log, const StorageTable& storages,
                      const std::string& root);
