#pragma once

#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/shared/log_place.h"

// The node's transfer if it is of the kind that a request needs, else null.
template <typename Event>
Event* NorvaneTransmitNode::find_event() {
    if (transmit_event_ == nullptr) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE,
                       "[%I64u] invalid connection data: get transmit event failed", session_id());
        return nullptr;
    }
    if (transmit_event_->event_kind != Event::kind) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] invalid connection data: (%s) != (%s)",
                       session_id(), transmit_event_->event_name(), Event::name);
        return nullptr;
    }
    return static_cast<Event*>(transmit_event_);
}
