#include "tests/system/http_peer.h"

#include <charconv>
#include <stdexcept>

namespace {

std::string head_of(const Answer& answer, std::size_t size) {
    return "HTTP/1.1 " + answer.status +
           "\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\nContent-Type: " +
           answer.type + "\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
}

// What stands between a text and the end of its line.
std::string_view behind(std::string_view text, std::string_view head) {
    const std::size_t begin = head.find(text);
    if (begin == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = head.substr(begin + text.size());
    return rest.substr(0, rest.find("\r\n"));
}

std::size_t number(std::string_view digits) {
    std::size_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << answer.status << ", " << answer.type << ", " << answer.body.size()
               << " bytes: " << answer.body.substr(0, 200);
}

Answer status_page(const std::string& status) {
    return {status, "text/html",
            "<html><head><title>" + status + "</title></head><body><h1>" + status +
                "</h1></body></html>"};
}

std::string bytes_of(const Answer& answer) {
    return head_of(answer, answer.body.size()) + answer.body;
}

std::string get_request(std::string_view url) {
    return "GET " + std::string(url) + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n\r\n";
}

void HttpPeer::send(std::string_view bytes) {
    if (!socket_.send(bytes)) {
        throw std::runtime_error("the server takes no more bytes");
    }
}

Answer HttpPeer::receive() {
    const std::string head = receive_head();
    const std::size_t size = number(behind("Content-Length: ", head));
    Answer answer{std::string(behind("HTTP/1.1 ", head)),
                  std::string(behind("Content-Type: ", head)), ""};
    if (head != head_of(answer, size)) {
        throw std::runtime_error("no head of an answer: " + head);
    }
    answer.body = socket_.receive(size);
    if (answer.body.size() != size) {
        throw std::runtime_error("a body of " + std::to_string(size) + " bytes ended after " +
                                 std::to_string(answer.body.size()));
    }
    return answer;
}

Answer HttpPeer::get(std::string_view url) {
    send(get_request(url));
    return receive();
}

std::string HttpPeer::receive_rest() {
    socket_.finish_sending();
    std::string bytes = socket_.receive_to_end();
    if (!socket_.await_close()) {
        throw std::runtime_error("the server leaves the connection open");
    }
    return bytes;
}

std::string HttpPeer::receive_head() {
    std::string head;
    while (!head.ends_with("\r\n\r\n")) {
        const std::string byte = socket_.receive(1);
        if (byte.empty()) {
            throw std::runtime_error("the server sent no whole head: " + head);
        }
        head += byte;
    }
    return head;
}
