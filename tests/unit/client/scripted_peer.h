#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "src/message/catalogue.h"
#include "src/message/wire.h"

// A record in network order, as bytes.
template <message::WireRecord Record>
std::string bytes_of(Record record) {
    message::to_network_order(record);
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

// The server's end of one connection, which a test plays by hand. Everything throws when the client
// has gone or is silent for a minute; the peer takes that for the script's end.
class PeerConnection {
  public:
    explicit PeerConnection(int descriptor) : descriptor_(descriptor) {}

    std::string receive(std::size_t size);
    // True if the client ends the connection without another byte.
    bool at_end();
    void send(std::string_view bytes);
    // Ends the connection so that bytes under way are lost with it.
    void reset();

    // The next request, which has to be Row's; its tails go to `tail`, one behind the other.
    template <typename Row>
    typename Row::Request expect(std::string* tail = nullptr) {
        typename Row::Request request;
        const std::string bytes = receive(sizeof request);
        bytes.copy(reinterpret_cast<char*>(&request), sizeof request);
        message::to_host_order(request);
        if (request.type != Row::type) {
            throw std::runtime_error("unexpected request " + std::to_string(request.type));
        }
        std::string tails;
        for (const std::uint64_t length : Row::tail_lengths(request)) {
            tails += receive(length);
        }
        if (tail) {
            *tail = tails;
        }
        return request;
    }

    // The response of Row with these fields behind the type.
    template <typename Row>
    void answer(typename Row::Response response = {}) {
        response.type = Row::response_type;
        send(bytes_of(response));
    }

  private:
    int descriptor_;
};

// A server on 127.0.0.1 that plays one script per connection, one connection after the other, and
// refuses those that follow. The destructor waits for the scripts.
class ScriptedPeer {
  public:
    using Script = std::function<void(PeerConnection&)>;

    explicit ScriptedPeer(std::vector<Script> scripts);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::uint16_t port() const { return port_; }
    // Waits for the scripts. How many ran to their end.
    std::size_t played();

  private:
    void play_all();
    bool play(int descriptor, const Script& script);

    std::vector<Script> scripts_;
    std::size_t played_ = 0;
    int listener_;
    std::uint16_t port_ = 0;
    std::thread thread_;
};
