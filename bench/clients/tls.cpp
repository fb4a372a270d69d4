#include "bench/clients/tls.h"

#include <stdexcept>

namespace bench {

Tls::Tls(const Socket& socket)
    : context_(SSL_CTX_new(TLS_client_method())), session_(SSL_new(context_.get())) {
    if (SSL_set_fd(session_.get(), socket.descriptor()) != 1 || SSL_connect(session_.get()) != 1) {
        throw std::runtime_error("no TLS session");
    }
}

void Tls::send(std::span<const std::byte> bytes) {
    std::size_t sent = 0;
    if (SSL_write_ex(session_.get(), bytes.data(), bytes.size(), &sent) != 1) {
        throw std::runtime_error("TLS send");
    }
}

std::size_t Tls::receive_some(std::span<std::byte> bytes) {
    std::size_t got = 0;
    if (SSL_read_ex(session_.get(), bytes.data(), bytes.size(), &got) != 1) {
        throw std::runtime_error("TLS receive");
    }
    return got;
}

}  // namespace bench
