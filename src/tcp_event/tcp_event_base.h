#pragma once

#include <cstddef>
#include <cstdint>

#include "kestin_base/uncopy.h"

// What a transfer moves: 0 into a storage, 1 out of it.
enum class EventKind : std::int64_t { upload = 0, download = 1 };

// The longest path that a transfer takes, in bytes.
inline constexpr std::size_t longest_transfer_path = 1023;

// Everything about one file transfer while it runs. A node owns at most one, from
// set_connection_transmit_event to the next such call, and ends it by `release`. Used only from the
// callbacks of the node's connection.
class TcpEventBase : private Kestin::Base::Uncopy {
  public:
    virtual ~TcpEventBase() = default;

    // Destroys the object. No exception leaves.
    virtual void release() = 0;
    virtual const char* event_name() const = 0;

    const EventKind event_kind;

  protected:
    explicit TcpEventBase(EventKind kind) : event_kind(kind) {}
};

// Owns an event until it is handed to a node.
struct EventRelease {
    void operator()(TcpEventBase* event) const { event->release(); }
};
