#include "bench/clients/http_client.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

namespace bench {
namespace {

constexpr int requests_ahead = 128;

std::string get(const std::string& path, const char* fields = "") {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n";
}

}  // namespace

HttpClient::HttpClient(const Site& site) : site_(site), socket_(Socket::connect_to(site.port)) {
    if (site_.over_tls) {
        tls_ = std::make_unique<Tls>(socket_);
    }
}

void HttpClient::download(const std::string& name, std::int64_t size) {
    if (tls_ == nullptr) {
        send(get(site_.folder + name));
        return await_success();
    }
    send(get(site_.folder + name, "Connection: close\r\n"));
    if (socket_.discard_to_end() < static_cast<std::uint64_t>(size)) {
        throw std::runtime_error("the download is short");
    }
}

void HttpClient::upload(const std::string& name, std::int64_t size) {
    static const std::vector<std::byte> block(chunk, std::byte{'x'});
    send("PUT " + site_.folder + name +
         " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    for (std::int64_t left = size; left > 0; left -= chunk) {
        send(std::span(block).first(static_cast<std::size_t>(std::min(left, chunk))));
    }
    await_success();
}

void HttpClient::ask() {
    send(get(site_.page));
    await_success();
}

void HttpClient::ask_ahead(int count) {
    std::string batch;
    for (int index = 0; index < requests_ahead; ++index) {
        batch += get(site_.page);
    }
    for (int left = count; left > 0; left -= requests_ahead) {
        send(batch);
        for (int index = 0; index < requests_ahead; ++index) {
            await_success();
        }
    }
}

void HttpClient::list(const std::string& folder) {
    send(get(site_.folder + folder + '/'));
    await_success();
}

void HttpClient::send(const std::string& text) {
    send(std::as_bytes(std::span(text)));
}

void HttpClient::send(std::span<const std::byte> bytes) {
    tls_ == nullptr ? socket_.send(bytes) : tls_->send(bytes);
}

void HttpClient::await_success() {
    const Answer answer = receive_head();
    if (answer.status.find(" 2") == std::string::npos) {
        throw std::runtime_error(answer.status);
    }
    drop_body(answer);
}

HttpClient::Answer HttpClient::receive_head() {
    Answer answer;
    answer.status = take_line();
    for (std::string line = take_line(); !line.empty(); line = take_line()) {
        if (line.starts_with("Content-Length: ")) {
            answer.length = std::stoull(line.substr(16));
        }
        answer.chunked = answer.chunked || line == "Transfer-Encoding: chunked";
    }
    return answer;
}

void HttpClient::drop_body(const Answer& answer) {
    if (!answer.chunked) {
        return drop(answer.length);
    }
    std::uint64_t length = 0;
    do {
        length = std::stoull(take_line(), nullptr, 16);
        drop(length + 2);
    } while (length > 0);
}

void HttpClient::drop(std::uint64_t length) {
    const std::uint64_t here = std::min<std::uint64_t>(length, received_.size());
    received_.erase(0, here);
    socket_.discard(length - here);
}

std::string HttpClient::take_line() {
    std::size_t end = received_.find("\r\n");
    for (; end == std::string::npos; end = received_.find("\r\n")) {
        receive_more();
    }
    std::string line = received_.substr(0, end);
    received_.erase(0, end + 2);
    return line;
}

void HttpClient::receive_more() {
    std::array<std::byte, 4096> block;
    const std::size_t got =
        tls_ == nullptr ? socket_.receive_some(block) : tls_->receive_some(block);
    if (got == 0) {
        throw std::runtime_error("the peer closed the connection");
    }
    received_.append(reinterpret_cast<const char*>(block.data()), got);
}

}  // namespace bench
