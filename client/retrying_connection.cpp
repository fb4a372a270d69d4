#include "client/retrying_connection.h"

#include <string>

#include "client/detail/pause.h"
#include "client/detail/requests.h"
#include "client/detail/wire.h"
#include "src/message/status.h"

namespace transmit {
namespace {

using std::chrono::milliseconds;

}  // namespace

RetryingConnection::RetryingConnection(Endpoint endpoint, WaitLimits limits, RetryPolicy policy,
                                       RetryNotice notice)
    : endpoint_(std::move(endpoint)),
      limits_(std::move(limits)),
      policy_(policy),
      notice_(std::move(notice)),
      backoff_(policy.first_pause, policy.longest_pause, policy.time_limit) {
}

Result<Connection*> RetryingConnection::connect() {
    if (connection_ && connection_->is_open()) {
        return &*connection_;
    }
    auto opened = Connection::open(endpoint_, limits_);
    if (!opened) {
        return opened.error();
    }
    connection_ = *std::move(opened);
    was_connected_ = true;
    const auto speed = detail::set_speed(detail::speed_by_blocks);
    if (const auto said = connection_->wire().send_unawaited<message::SetTransmitSpeed>(speed);
        !said) {
        return said.error();
    }
    return &*connection_;
}

Result<void> RetryingConnection::pause_after(const Error& error) {
    if (!worth_another_attempt(error)) {
        return error;
    }
    const auto pause = backoff_.next_pause();
    if (!pause) {
        return Error{ErrorKind::time_limit, 0, "gave up after repeated attempts: " + error.text};
    }
    if (notice_) {
        notice_(error, *pause, backoff_.left());
    }
    if (!detail::pause_unless(limits_.cancelled, *pause)) {
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
            return was_connected_ || policy_.await_server;
        case ErrorKind::refused:
            // Another client sends it, or the server hasn't noticed yet that our former connection
            // is gone.
            return error.status == message::status_file_in_use;
        default:
            return false;
    }
}

}  // namespace transmit
