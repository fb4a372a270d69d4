#pragma once

namespace Kestin::Net::detail {

// Why the substrate closes a connection, in the words of the run log.
struct CloseReason {
    const char* text = nullptr;
    // errno of the system call that `text` names, or 0.
    int error = 0;
    // Whether a peer can bring it about at will, as often as it likes.
    bool is_common = false;
};

namespace close_reason {

inline constexpr CloseReason frame_too_large{"its frame is larger than the receive buffer"};
inline constexpr CloseReason request_too_long{"it sent more than a request may have"};
inline constexpr CloseReason no_request{"no request came in time", 0, true};
inline constexpr CloseReason send_refused{"no memory, or no room, for what it is to be sent"};
inline constexpr CloseReason file_too_short{"the file that it is sent has become shorter"};
inline constexpr CloseReason vanished{"it has vanished, it acknowledges nothing any more"};
inline constexpr CloseReason silent_holder{"it moved no byte while memory was short"};
inline constexpr CloseReason largest_holder{"it held the most memory while memory was short"};

}  // namespace close_reason
}  // namespace Kestin::Net::detail
