#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "client/connection.h"
#include "client/detail/backoff.h"
#include "client/error.h"
#include "client/remote.h"
#include "client/wait_limits.h"

namespace transmit {

// How stubbornly a broken connection is opened again: pauses that double from the first to the
// longest, until nothing has moved for `time_limit`. A limit of 0 means no second attempt.
struct RetryPolicy {
    std::chrono::milliseconds first_pause{1'000};
    std::chrono::milliseconds longest_pause{60'000};
    std::chrono::milliseconds time_limit{300'000};
    // A server that was never reached is waited for too; else it is an error at once.
    bool await_server = false;
};

// A connection that is opened when it is first needed, kept for what follows, and opened anew when
// it breaks. The server, which may keep the sending speed of an earlier client, is told the full
// one first. Not for several threads at once.
class RetryingConnection {
  public:
    // Told before each pause: why, how long it lasts, and for how long attempts will go on if
    // nothing moves.
    using RetryNotice = std::function<void(const Error& reason, std::chrono::milliseconds pause,
                                           std::chrono::milliseconds left)>;

    explicit RetryingConnection(Endpoint endpoint, WaitLimits limits = {}, RetryPolicy policy = {},
                                RetryNotice notice = {});

    // The open connection, for one attempt; it is valid until the next call of this object.
    Result<Connection*> connect();

    // Runs `step`, which takes a Connection& and returns a Result, from its beginning until it
    // succeeds or ends in an error that another attempt wouldn't mend.
    template <typename Step>
    auto run(Step step) -> decltype(step(std::declval<Connection&>()));

    // What a step tells when it got further than any attempt before: the time limit starts anew.
    void progressed() { backoff_.restart(); }

    bool cancelled() const { return limits_.cancelled && limits_.cancelled(); }

  private:
    // Waits for the next attempt, or gives the error to end with.
    Result<void> pause_after(const Error& error);
    bool worth_another_attempt(const Error& error) const;

    Endpoint endpoint_;
    WaitLimits limits_;
    RetryPolicy policy_;
    RetryNotice notice_;
    detail::Backoff backoff_;
    std::optional<Connection> connection_;
    bool was_connected_ = false;
};

template <typename Step>
auto RetryingConnection::run(Step step) -> decltype(step(std::declval<Connection&>())) {
    using Outcome = decltype(step(std::declval<Connection&>()));
    backoff_.restart();
    while (true) {
        const auto opened = connect();
        Outcome outcome = opened ? step(**opened) : Outcome(opened.error());
        if (outcome) {
            return outcome;
        }
        if (const auto paused = pause_after(outcome.error()); !paused) {
            return paused.error();
        }
    }
}

}  // namespace transmit
