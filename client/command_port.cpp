#include "client/command_port.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "client/detail/socket.h"

namespace transmit {
namespace {

constexpr std::size_t longest_head = 64UL * 1024;
constexpr std::size_t longest_body = 64UL * 1024 * 1024;
constexpr std::string_view end_of_head = "\r\n\r\n";

Error bad_http(const char* why) {
    return {ErrorKind::bad_answer, 0, std::string("the command port's answer ") + why};
}

Result<void> receive_more(detail::Socket& socket, std::string& text) {
    std::array<char, 16384> piece;
    const auto size = socket.receive_some(piece.data(), piece.size());
    if (!size) {
        return size.error();
    }
    text.append(piece.data(), *size);
    return {};
}

// The value of Content-Length, which this server always gives, in a head with its last line's end.
Result<std::size_t> body_size(std::string_view head) {
    constexpr std::string_view field = "\r\nContent-Length: ";
    if (!head.starts_with("HTTP/1.1 200 ")) {
        return bad_http("is not 200");
    }
    const auto start = head.find(field);
    std::size_t size = 0;
    if (start == std::string_view::npos ||
        std::from_chars(head.data() + start + field.size(), head.data() + head.size(), size).ec !=
            std::errc() ||
        size > longest_body) {
        return bad_http("has no usable length");
    }
    return size;
}

Result<std::string> receive_answer(detail::Socket& socket) {
    std::string text;
    std::size_t head = std::string::npos;
    std::size_t searched = 0;
    while ((head = text.find(end_of_head, searched)) == std::string::npos) {
        if (text.size() > longest_head) {
            return bad_http("has no end of its head");
        }
        searched = text.size() - std::min(text.size(), end_of_head.size() - 1);
        if (auto received = receive_more(socket, text); !received) {
            return received.error();
        }
    }
    const auto size = body_size(std::string_view(text).substr(0, head + end_of_head.size()));
    if (!size) {
        return size.error();
    }
    text.erase(0, head + end_of_head.size());
    text.reserve(*size);
    while (text.size() < *size) {
        if (auto received = receive_more(socket, text); !received) {
            return received.error();
        }
    }
    text.resize(*size);
    return text;
}

}  // namespace

Result<std::string> fetch_document(const Endpoint& command_port, std::string_view path,
                                   WaitLimits limits) {
    auto socket = detail::Socket::connect(command_port, std::move(limits));
    if (!socket) {
        return socket.error();
    }
    std::string request = "GET " + std::string(path) + " HTTP/1.1\r\nHost: " + command_port.host +
                          "\r\nConnection: close\r\n\r\n";
    std::array<iovec, 1> parts{iovec{request.data(), request.size()}};
    if (auto sent = socket->send_all(parts); !sent) {
        return sent.error();
    }
    return receive_answer(*socket);
}

}  // namespace transmit
