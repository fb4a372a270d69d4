#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "tests/support/raw_socket.h"

// One answer of the command port.
struct Answer {
    std::string status;
    std::string type;
    std::string body;

    bool operator==(const Answer&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Answer& answer);

// The answer that tells a status and nothing else.
Answer status_page(const std::string& status);

// The bytes of an answer on the wire.
std::string bytes_of(const Answer& answer);

// A request for a URL as browsers send it.
std::string get_request(std::string_view url);

// A client of the command port that sends whatever a test tells it to and is strict with the
// answers. What can't be sent, doesn't come in time or isn't the one form of an answer throws.
class HttpPeer {
  public:
    static constexpr std::chrono::milliseconds default_limit = std::chrono::seconds(60);

    explicit HttpPeer(std::uint16_t port, std::chrono::milliseconds limit = default_limit)
        : socket_(port, limit) {}

    support::RawSocket& socket() { return socket_; }

    void send(std::string_view bytes);
    Answer receive();
    Answer get(std::string_view url);

    // Sends no more, and gives everything that the server still has to say until it closes.
    std::string receive_rest();

  private:
    std::string receive_head();

    support::RawSocket socket_;
};
