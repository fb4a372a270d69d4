#pragma once

#include <array>
#include <concepts>
#include <tuple>

#include "src/norvane_transmit_node/norvane_transmit_node.h"

// The framing of all requests, written once. A request is taken out of the receive buffer only when
// all of it stands there; until then nothing is consumed.

// `tails` is an array of one resizable sequence of bytes for each tail that is moved.
template <typename Row, typename Tails>
NorvaneTransmitNode::Taken NorvaneTransmitNode::take(const OperationLog& log,
                                                     Connection& connection,
                                                     typename Row::Request& request, Tails& tails) {
    if constexpr (Row::tail_count == 0) {
        return take_record<Row>(log, connection, request);
    } else {
        return take_record_and_tails<Row>(log, connection, request, tails);
    }
}

template <typename Row>
NorvaneTransmitNode::Taken NorvaneTransmitNode::take_record(const OperationLog& log,
                                                            Connection& connection,
                                                            typename Row::Request& request) {
    if (connection.recv_buffer_size() < sizeof request) {
        return Taken::incomplete;
    }
    const bool taken = Row::framing == message::Framing::header_dropped
                           ? drop_received(log, connection, sizeof request)
                           : move_received(log, connection, &request, sizeof request);
    if (!taken) {
        return Taken::failed;
    }
    message::to_host_order(request);
    rate_window_.count_in(sizeof request);
    return Taken::whole;
}

template <typename Row, typename Tails>
NorvaneTransmitNode::Taken NorvaneTransmitNode::take_record_and_tails(
    const OperationLog& log, Connection& connection, typename Row::Request& request, Tails& tails) {
    const std::uint64_t available = connection.recv_buffer_size();
    if (available < sizeof request) {
        return Taken::incomplete;
    }
    if (!copy_received(log, connection, &request, sizeof request)) {
        return Taken::failed;
    }
    message::to_host_order(request);
    const auto lengths = Row::tail_lengths(request);
    std::uint64_t total = sizeof request;
    for (const std::uint64_t length : lengths) {
        total += length;
    }
    if (available < total) {
        return Taken::incomplete;
    }
    constexpr bool drops_tails = Row::framing == message::Framing::tails_dropped;
    if (!drop_received(log, connection, drops_tails ? total : sizeof request)) {
        return Taken::failed;
    }
    for (std::size_t index = 0; index < tails.size(); ++index) {
        tails[index].resize(lengths[index]);
        if (lengths[index] != 0 &&
            !move_received(log, connection, tails[index].data(), lengths[index])) {
            return Taken::failed;
        }
    }
    rate_window_.count_in(total);
    return Taken::whole;
}

// What a do_handle_ member gets of its row, each an empty tuple where the row has nothing of the
// kind: the request if it holds more than its type, the tails, and either the string for the
// response's tail or the response if it holds more than its status.
template <typename Request>
auto request_arguments(const Request& request) {
    if constexpr (std::same_as<Request, message::TypeOnlyRequest>) {
        return std::tuple<>();
    } else {
        return std::tie(request);
    }
}

template <typename Tails>
auto tail_arguments(const Tails& tails) {
    return std::apply([](const auto&... tail) { return std::tie(tail...); }, tails);
}

template <typename Response>
auto response_arguments(Response& response, std::string& tail) {
    if constexpr (requires { response.data_length; }) {
        return std::tie(tail);
    } else if constexpr (std::same_as<Response, message::PlainResponse>) {
        return std::tuple<>();
    } else {
        return std::tie(response);
    }
}

// Takes one request of the row, has `work`, a do_handle_ member, do what it asks for and sends the
// response, whatever its status.
template <typename Row>
bool NorvaneTransmitNode::serve(Connection* connection, auto work, const char* handler) {
    constexpr bool has_tails = Row::framing == message::Framing::tails_moved;
    typename Row::Request request{};
    std::array<std::string, has_tails ? Row::tail_count : 0> tails;
    const Taken taken = take<Row>(operation_log(handler), *connection, request, tails);
    if (taken != Taken::whole) {
        return taken == Taken::incomplete;
    }
    typename Row::Response response{};
    std::string response_tail;
    response.status =
        std::apply([this, work](auto&... argument) { return (this->*work)(argument...); },
                   std::tuple_cat(request_arguments(request), tail_arguments(tails),
                                  response_arguments(response, response_tail)));
    response.type = Row::response_type;
    return send_response(connection, response, response_tail);
}

template <typename Response>
bool NorvaneTransmitNode::send_response(Connection* connection, Response response,
                                        std::string_view tail) {
    if constexpr (requires { response.data_length; }) {
        response.data_length = static_cast<decltype(response.data_length)>(tail.size());
    }
    message::to_network_order(response);
    return send_message(connection, &response, sizeof response, tail.data(),
                        static_cast<std::uint32_t>(tail.size()));
}
