#pragma once

#include <sys/uio.h>

#include <array>
#include <cassert>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "client/detail/socket.h"
#include "client/error.h"
#include "src/message/catalogue.h"
#include "src/message/wire.h"

namespace transmit::detail {

// The longest document that is taken from a server, which sends none longer: a listing of some
// million files. Memory for it grows with what arrives, not with what was announced.
inline constexpr std::uint32_t longest_document = 256U << 20;

// What a request brought: the response's record in host order, and the bytes behind it.
template <typename Row>
struct Answer {
    typename Row::Response record;
    std::string tail;
};

// A connection as a stream of records. Every error closes it. Not for several threads at once.
class Wire {
  public:
    explicit Wire(Socket socket) : socket_(std::move(socket)) {}

    // Any request of the catalogue with its tails, whose lengths the record holds, and its
    // response, whatever the status. The type field is filled in here.
    template <typename Row, typename... Tail>
    Result<Answer<Row>> ask(typename Row::Request request, Tail... tails);

    // The halves of `ask`, for requests sent ahead. Responses come in the order of the requests.
    template <typename Row, typename... Tail>
    Result<void> send_request(typename Row::Request request, Tail... tails);
    // A tail longer than `longest` is bad_answer.
    template <typename Row>
    Result<Answer<Row>> receive_response(std::uint32_t longest = longest_document);

    // A request whose answer is only looked at when the next one is wanted: nobody waits for it.
    template <typename Row>
    Result<void> send_unawaited(typename Row::Request request);

    // From `hold` on what is sent is kept, until `release` sends all of it with one write.
    void hold() { holding_ = true; }
    Result<void> release();

    // All of the parts, in order. Changes the parts.
    Result<void> send(std::span<iovec> parts);
    // Exactly `size` bytes.
    Result<void> receive(void* data, std::size_t size);
    // Bytes as they come, at most `size` and at least one.
    Result<std::size_t> receive_some(void* data, std::size_t size);

    // True if a receive would not wait.
    bool readable() const { return buffered() > 0 || (is_open() && socket_.readable()); }
    bool cancelled() const { return socket_.cancelled(); }
    bool is_open() const { return socket_.is_open(); }
    void close() { socket_.close(); }

    Error wrong_type(std::uint16_t wanted, std::uint16_t found);

  private:
    Result<void> take_unawaited();
    Result<void> fill(std::size_t size);
    Result<std::string> receive_tail(std::uint32_t size, std::uint32_t longest);
    std::size_t buffered() const { return end_ - begin_; }

    Socket socket_;
    std::string held_;
    bool holding_ = false;
    std::optional<std::uint16_t> unawaited_;  // the type of the answer that comes first
    // Small responses that arrive together are received together.
    std::array<char, 16UL * 1024> input_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

template <typename Row, typename... Tail>
Result<void> Wire::send_request(typename Row::Request request, Tail... tails) {
    static_assert(sizeof...(tails) == Row::tail_count);
    assert((Row::tail_lengths(request) ==
            std::array<std::uint64_t, Row::tail_count>{std::string_view(tails).size()...}));
    request.type = Row::type;
    message::to_network_order(request);
    std::array<iovec, 1 + Row::tail_count> parts{
        iovec{&request, sizeof request}, iovec{const_cast<char*>(std::string_view(tails).data()),
                                               std::string_view(tails).size()}...};
    return send(parts);
}

template <typename Row>
Result<void> Wire::send_unawaited(typename Row::Request request) {
    static_assert(std::is_same_v<typename Row::Response, message::PlainResponse>);
    unawaited_ = Row::response_type;
    return send_request<Row>(request);
}

template <typename Row>
Result<Answer<Row>> Wire::receive_response(std::uint32_t longest) {
    Answer<Row> answer;
    if (auto received = receive(&answer.record, sizeof answer.record); !received) {
        return received.error();
    }
    message::to_host_order(answer.record);
    if (answer.record.type != Row::response_type) {
        return wrong_type(Row::response_type, answer.record.type);
    }
    if constexpr (requires { answer.record.data_length; }) {
        auto tail = receive_tail(answer.record.data_length, longest);
        if (!tail) {
            return tail.error();
        }
        answer.tail = *std::move(tail);
    }
    return answer;
}

template <typename Row, typename... Tail>
Result<Answer<Row>> Wire::ask(typename Row::Request request, Tail... tails) {
    if (auto sent = send_request<Row>(request, tails...); !sent) {
        return sent.error();
    }
    return receive_response<Row>();
}

}  // namespace transmit::detail
