#include "client/retrying_connection.h"

#include <poll.h>

#include <string>

#include "src/message/status.h"

namespace transmit {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Sleeps, with a look at the caller's wish now and then; false if that is to stop.
bool sleep_unless(const std::function<bool()>& cancelled, milliseconds time) {
    constexpr milliseconds slice{200};
    const auto end = Clock::now() + time;
    while (!cancelled || !cancelled()) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left <= milliseconds::zero()) {
            return true;
        }
        poll(nullptr, 0, static_cast<int>(std::min(left, slice).count()));
    }
    return false;
}

}  // namespace

RetryingConnection::RetryingConnection(Endpoint endpoint, WaitLimits limits, RetryPolicy policy,
                                       RetryNotice notice)
    : endpoint_(std::move(endpoint)),
      limits_(std::move(limits)),
      policy_(policy),
      notice_(std::move(notice)),
      backoff_(policy.first_pause, policy.longest_pause, policy.time_limit) {
}

Result<void> RetryingConnection::ensure_open() {
    if (connection_ && connection_->is_open()) {
        return {};
    }
    auto opened = Connection::open(endpoint_, limits_);
    if (!opened) {
        return opened.error();
    }
    connection_ = *std::move(opened);
    was_connected_ = true;
    return {};
}

Result<void> RetryingConnection::pause_after(const Error& error) {
    if (!worth_another_attempt(error)) {
        return error;
    }
    broke_ = true;
    const auto pause = backoff_.next_pause();
    if (!pause) {
        return Error{ErrorKind::time_limit, 0, "gave up after repeated attempts: " + error.text};
    }
    if (notice_) {
        notice_(error, *pause);
    }
    if (!sleep_unless(limits_.cancelled, *pause)) {
        return Error{ErrorKind::cancelled, 0, "cancelled"};
    }
    return {};
}

bool RetryingConnection::worth_another_attempt(const Error& error) const {
    if (policy_.time_limit == milliseconds::zero()) {
        return false;
    }
    switch (error.kind) {
        case ErrorKind::connection_lost:
        case ErrorKind::time_limit:
            return true;
        case ErrorKind::no_connection:
            return was_connected_;
        case ErrorKind::refused:
            // The server may take a while to notice that our former connection is gone.
            return broke_ && error.status == message::status_file_in_use;
        default:
            return false;
    }
}

}  // namespace transmit
