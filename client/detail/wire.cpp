#include "client/detail/wire.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

constexpr std::size_t tail_step = 1U << 20;

Error closed() {
    return {ErrorKind::connection_lost, 0, "the connection is closed"};
}

}  // namespace

Result<void> Wire::release() {
    holding_ = false;
    iovec all{held_.data(), held_.size()};
    auto sent = send(std::span(&all, 1));
    held_.clear();
    return sent;
}

Result<void> Wire::send(std::span<iovec> parts) {
    if (!is_open()) {
        return closed();
    }
    if (holding_) {
        for (const iovec& part : parts) {
            held_.append(static_cast<const char*>(part.iov_base), part.iov_len);
        }
        return {};
    }
    auto sent = socket_.send_all(parts);
    if (!sent) {
        close();
    }
    return sent;
}

Result<void> Wire::receive(void* data, std::size_t size) {
    if (auto taken = take_unawaited(); !taken) {
        return taken;
    }
    auto* place = static_cast<char*>(data);
    if (size <= input_.size()) {
        if (auto filled = fill(size); !filled) {
            return filled;
        }
    }
    const std::size_t ready = std::min(size, buffered());
    std::memcpy(place, input_.data() + begin_, ready);
    begin_ += ready;
    if (ready == size) {
        return {};
    }
    auto received = is_open() ? socket_.receive_exactly(place + ready, size - ready) : closed();
    if (!received) {
        close();
    }
    return received;
}

Result<void> Wire::take_unawaited() {
    const auto type = std::exchange(unawaited_, std::nullopt);
    if (!type) {
        return {};
    }
    message::PlainResponse answer{};
    if (auto received = receive(&answer, sizeof answer); !received) {
        return received;
    }
    message::to_host_order(answer);
    if (answer.type != *type) {
        return wrong_type(*type, answer.type);
    }
    if (answer.status != message::status_ok) {
        close();
        return refusal(answer.status);
    }
    return {};
}

// Waits until the input holds `size` bytes, which fit in.
Result<void> Wire::fill(std::size_t size) {
    if (buffered() < size && input_.size() - begin_ < size) {
        std::memmove(input_.data(), input_.data() + begin_, buffered());
        end_ = buffered();
        begin_ = 0;
    }
    while (buffered() < size) {
        const auto received =
            is_open() ? socket_.receive_some(input_.data() + end_, input_.size() - end_) : closed();
        if (!received) {
            close();
            return received.error();
        }
        end_ += *received;
    }
    return {};
}

Result<std::size_t> Wire::receive_some(void* data, std::size_t size) {
    if (const auto taken = take_unawaited(); !taken) {
        return taken.error();
    }
    if (buffered() > 0) {
        const std::size_t ready = std::min(size, buffered());
        std::memcpy(data, input_.data() + begin_, ready);
        begin_ += ready;
        return ready;
    }
    auto received = is_open() ? socket_.receive_some(data, size) : closed();
    if (!received) {
        close();
    }
    return received;
}

Result<std::string> Wire::receive_tail(std::uint32_t size, std::uint32_t longest) {
    if (size > longest) {
        close();
        return Error{ErrorKind::bad_answer, 0,
                     "the server announced an answer of " + std::to_string(size) +
                         " bytes, more than there can be"};
    }
    std::string tail;
    while (tail.size() < size) {
        const std::size_t start = tail.size();
        tail.resize(start + std::min<std::size_t>(tail_step, size - start));
        if (auto received = receive(tail.data() + start, tail.size() - start); !received) {
            return received.error();
        }
    }
    return tail;
}

Error Wire::wrong_type(std::uint16_t wanted, std::uint16_t found) {
    close();
    return {ErrorKind::bad_answer, 0,
            "the server answered with type " + std::to_string(found) + " in place of " +
                std::to_string(wanted) + " (is this its transmit port?)"};
}

}  // namespace transmit::detail
