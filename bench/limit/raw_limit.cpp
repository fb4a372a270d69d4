#include "bench/limit/raw_limit.h"

#include <exception>
#include <iostream>
#include <thread>

#include "bench/limit/limit_connection.h"
#include "bench/socket.h"

namespace bench {

void serve_raw_limit(std::uint16_t port, const std::string& folder) {
    const Socket listener = Socket::listen_on(port);
    std::cout << "ready" << std::endl;
    while (true) {
        std::thread([socket = listener.accept(), folder]() mutable {
            try {
                LimitConnection(std::move(socket), folder).serve();
            } catch (const std::exception&) {
                // The client has gone.
            }
        }).detach();
    }
}

}  // namespace bench
