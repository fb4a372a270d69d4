#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "bench/client.h"
#include "bench/clients/tls.h"
#include "bench/socket.h"

namespace bench {

// GET and PUT on one connection that is kept alive. Over TLS a download is its connection's last
// request: what comes is then dropped up to the end without being deciphered, as with the wire's
// own cipher.
class HttpClient : public Client {
  public:
    // Where the served folder and the page for `ask` lie on the server.
    struct Site {
        std::uint16_t port = 0;
        bool over_tls = false;
        std::string folder = "/";
        std::string page = "/";
    };

    explicit HttpClient(const Site& site);

    void download(const std::string& name, std::int64_t size) override;
    void upload(const std::string& name, std::int64_t size) override;
    void ask() override;
    void ask_ahead(int count) override;
    void list(const std::string& folder) override;

  private:
    struct Answer {
        std::string status;
        // Of the body; absent if it comes in pieces that tell their own lengths (RFC 9112).
        std::uint64_t length = 0;
        bool chunked = false;
    };

    void send(const std::string& text);
    void send(std::span<const std::byte> bytes);
    // Reads an answer's head; the body's first bytes may have come with it.
    Answer receive_head();
    void receive_more();
    std::string take_line();
    void drop_body(const Answer& answer);
    void drop(std::uint64_t length);
    void await_success();

    Site site_;
    Socket socket_;
    std::unique_ptr<Tls> tls_;
    std::string received_;
};

}  // namespace bench
