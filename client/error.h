#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace transmit {

enum class ErrorKind {
    no_connection,    // the server couldn't be reached
    connection_lost,  // it was reached, and the connection broke
    time_limit,       // silence, or retries, went on for longer than allowed
    refused,          // the server answered with a failing status
    bad_answer,       // the peer doesn't speak this protocol
    invalid_request,  // what was asked for does not fit the wire
    missing_file,     // a file of this machine, or the folder to put it in, doesn't exist
    local_file,       // a file of this machine couldn't be read or written
    file_changed,     // the source changed while it was on its way
    cancelled,        // the caller's wish
};

struct Error {
    ErrorKind kind;
    std::uint16_t status = 0;  // a message::Status if `kind` is refused, else 0
    std::string text;          // one sentence for people, without a full stop
};

// A value, or the error that stands in its place. Nothing in this library throws on purpose; only
// memory that can't be had ends in an exception. Reading the side that isn't there is a programming
// error.
template <typename Value>
class [[nodiscard]] Result {
  public:
    Result(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : held_(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return held_.index() == 0; }
    Value& operator*() & { return *std::get_if<0>(&held_); }
    const Value& operator*() const& { return *std::get_if<0>(&held_); }
    Value&& operator*() && { return std::move(*std::get_if<0>(&held_)); }
    Value* operator->() { return std::get_if<0>(&held_); }
    const Value* operator->() const { return std::get_if<0>(&held_); }
    const Error& error() const {
        assert(!*this);
        return *std::get_if<1>(&held_);
    }

  private:
    std::variant<Value, Error> held_;
};

template <>
class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    Result(Error error) : error_(std::move(error)) {}

    explicit operator bool() const { return !error_; }
    const Error& error() const {
        assert(error_);
        return *error_;
    }

  private:
    std::optional<Error> error_;
};

}  // namespace transmit
