#pragma once

#include "src/shared/node_record.h"

// A node whose figures the roster publishes.
class PublishedNode {
  public:
    // Writes the node's present figures to `out` and returns `out`. Any thread may call it while
    // the node is on the roster.
    virtual NodeRecord& get_node_record(NodeRecord& out) = 0;

  protected:
    PublishedNode() = default;
    ~PublishedNode() = default;
};
