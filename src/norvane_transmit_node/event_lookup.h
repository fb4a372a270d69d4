#pragma once

#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/shared/operation_log.h"

// The node's transfer if it is of the kind that a request needs, else null.
template <typename Event>
Event* NorvaneTransmitNode::find_event(const OperationLog& log) {
    if (transmit_event_ == nullptr) {
        log.error("invalid connection data: get transmit event failed");
        return nullptr;
    }
    if (transmit_event_->event_kind != Event::kind) {
        log.error("invalid connection data: (%s) != (%s)", transmit_event_->event_name(),
                  Event::name);
        return nullptr;
    }
    return static_cast<Event*>(transmit_event_);
}
