#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <span>

#include "bench/socket.h"

namespace bench {

// TLS on top of a connected socket, trusting whoever answers.
class Tls {
  public:
    explicit Tls(const Socket& socket);

    void send(std::span<const std::byte> bytes);
    std::size_t receive_some(std::span<std::byte> bytes);

  private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* session) const { SSL_free(session); }
    };

    std::unique_ptr<SSL_CTX, Free> context_;
    std::unique_ptr<SSL, Free> session_;
};

}  // namespace bench
