#include "tests/unit/client/scripted_peer.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int patience_ms = 60'000;

void await_readable(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    if (poll(&waiting, 1, patience_ms) <= 0) {
        throw std::runtime_error("the client is silent");
    }
}

}  // namespace

std::string PeerConnection::receive(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t done = 0; done < size;) {
        await_readable(descriptor_);
        const ssize_t count = recv(descriptor_, bytes.data() + done, size - done, 0);
        if (count <= 0) {
            throw std::runtime_error("the client has gone");
        }
        done += static_cast<std::size_t>(count);
    }
    return bytes;
}

bool PeerConnection::at_end() {
    char byte = 0;
    await_readable(descriptor_);
    return recv(descriptor_, &byte, 1, 0) <= 0;
}

void PeerConnection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            throw std::runtime_error("the client has gone");
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void PeerConnection::reset() {
    const linger now{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

ScriptedPeer::ScriptedPeer(std::vector<Script> scripts)
    : scripts_(std::move(scripts)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, length) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, generic, &length) != 0) {
        throw std::runtime_error("no port to listen on");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { play_all(); });
}

ScriptedPeer::~ScriptedPeer() {
    played();
}

std::size_t ScriptedPeer::played() {
    if (thread_.joinable()) {
        thread_.join();
    }
    return played_;
}

void ScriptedPeer::play_all() {
    for (const Script& script : scripts_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (poll(&waiting, 1, patience_ms) <= 0 ||
            !play(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), script)) {
            break;
        }
        ++played_;
    }
    close(listener_);
}

bool ScriptedPeer::play(int descriptor, const Script& script) {
    bool whole = true;
    PeerConnection connection(descriptor);
    try {
        script(connection);
    } catch (const std::runtime_error&) {
        whole = false;
    }
    close(descriptor);
    return whole;
}
