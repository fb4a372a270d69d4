#pragma once

#include <list>

#include "src/shared/node_record.h"
#include "src/shared/transmit_statistics.h"

// The totals of a set of nodes. `last_data_update_time` is 0: the caller knows the time. Uploads
// and downloads each have their own figures; all other nodes are only counted.
TransmitStatistics tally(const std::list<NodeRecord>& records);
