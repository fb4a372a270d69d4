#include "tests/support/proxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

namespace support {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t piece_size = 64UL * 1024;
// What may be under way on a delayed line: 100 ms at 640 MiB/s.
constexpr std::size_t most_under_way = 64UL * 1024 * 1024;
constexpr std::chrono::milliseconds longest_wait{10};

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int connect_to(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

void make_quick(int descriptor) {
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

void reset(int descriptor) {
    const linger at_once{1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(descriptor);
}

bool is_pause() {
    return errno == EAGAIN || errno == EINTR;
}

}  // namespace

// One direction of a connection. A call that can't go on now is no error; false is the connection's
// end.
class Proxy::Way {
  public:
    Way(Proxy& proxy, int from, int to, std::atomic<std::uint64_t>& count)
        : proxy_(proxy), from_(from), to_(to), count_(count) {}

    bool is_over() const { return ended_ && under_way_.empty(); }
    bool wants_input() const { return !ended_ && size_ < most_under_way; }
    bool wants_output() const { return !under_way_.empty() && wait() <= Clock::duration::zero(); }

    // Until the front piece may leave.
    Clock::duration wait() const {
        return under_way_.empty() ? longest_wait
                                  : std::max(under_way_.front().due, next_) - Clock::now();
    }

    bool receive() {
        std::vector<char> bytes(piece_size);
        const ssize_t count = recv(from_, bytes.data(), bytes.size(), 0);
        if (count < 0) {
            return is_pause();
        }
        if (count == 0) {
            ended_ = true;
            pass_on_the_end();
            return true;
        }
        bytes.resize(static_cast<std::size_t>(count));
        size_ += bytes.size();
        under_way_.push_back({Clock::now() + proxy_.line_.delay, std::move(bytes)});
        return true;
    }

    bool pass_on() {
        Piece& piece = under_way_.front();
        const std::size_t wanted = proxy_.take(piece.bytes.size() - piece.sent);
        if (wanted == 0) {
            return true;
        }
        const ssize_t count = send(to_, piece.bytes.data() + piece.sent, wanted, MSG_NOSIGNAL);
        const auto sent = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        proxy_.give_back(wanted - sent);
        if (count < 0) {
            return is_pause();
        }
        took(piece, sent);
        pass_on_the_end();
        return true;
    }

  private:
    struct Piece {
        Clock::time_point due;
        std::vector<char> bytes;
        std::size_t sent = 0;
    };

    void pass_on_the_end() const {
        if (is_over()) {
            shutdown(to_, SHUT_WR);
        }
    }

    void took(Piece& piece, std::size_t sent) {
        count_ += sent;
        size_ -= sent;
        piece.sent += sent;
        if (proxy_.line_.bytes_per_second > 0) {
            next_ = std::max(next_, Clock::now()) +
                    std::chrono::nanoseconds(sent * 1'000'000'000 / proxy_.line_.bytes_per_second);
        }
        if (piece.sent == piece.bytes.size()) {
            under_way_.pop_front();
        }
    }

    Proxy& proxy_;
    int from_;
    int to_;
    std::atomic<std::uint64_t>& count_;
    std::deque<Piece> under_way_;
    std::size_t size_ = 0;
    bool ended_ = false;
    Clock::time_point next_{};
};

struct Proxy::Link {
    int client;
    int server;
    std::atomic<Fate> fate = Fate::alive;
    std::thread thread{};
};

Proxy::Proxy(std::uint16_t target, Line line) : target_(target), line_(line) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(listener_, 64) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("the proxy has no port");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept_all(); });
}

Proxy::~Proxy() {
    ending_ = true;
    acceptor_.join();
    close(listener_);
    end_links(Fate::cut);
}

void Proxy::accept_all() {
    while (!ending_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(longest_wait.count())) <= 0) {
            continue;
        }
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const int server = connect_to(target_);
        if (server < 0) {
            reset(client);
            continue;
        }
        make_quick(client);
        make_quick(server);
        const std::lock_guard guard(lock_);
        links_.push_back(std::unique_ptr<Link>(new Link{client, server}));
        Link& link = *links_.back();
        link.thread = std::thread([this, &link] { serve(link); });
    }
}

void Proxy::serve(Link& link) {
    std::array<Way, 2> ways{Way(*this, link.client, link.server, to_server_),
                            Way(*this, link.server, link.client, to_client_)};
    bool goes_on = true;
    while (goes_on && link.fate == Fate::alive && !(ways[0].is_over() && ways[1].is_over())) {
        std::array<pollfd, 2> waiting{pollfd{link.client, 0, 0}, pollfd{link.server, 0, 0}};
        Clock::duration wait = longest_wait;
        for (std::size_t index = 0; index < ways.size(); ++index) {
            const bool input = ways[index].wants_input();
            const bool output = ways[index].wants_output() && is_open();
            waiting[index].events |= input ? POLLIN : short{0};
            waiting[1 - index].events |= output ? POLLOUT : short{0};
            wait = output ? wait : std::clamp(ways[index].wait(), Clock::duration(100'000), wait);
        }
        const timespec limit{0, std::chrono::nanoseconds(wait).count()};
        ppoll(waiting.data(), waiting.size(), &limit, nullptr);
        for (std::size_t index = 0; index < ways.size(); ++index) {
            if (waiting[index].revents & (POLLIN | POLLHUP | POLLERR) &&
                ways[index].wants_input()) {
                goes_on = goes_on && ways[index].receive();
            }
            if (waiting[1 - index].revents & POLLOUT) {
                goes_on = goes_on && ways[index].pass_on();
            }
        }
    }
    reset(link.server);
    while (link.fate == Fate::silent && !ending_) {
        poll(nullptr, 0, static_cast<int>(longest_wait.count()));
    }
    reset(link.client);
}

std::size_t Proxy::take(std::size_t wanted) {
    const std::lock_guard guard(lock_);
    if (!holds_) {
        return wanted;
    }
    const auto size = std::min<std::uint64_t>(wanted, until_hold_);
    until_hold_ -= size;
    if (until_hold_ == 0) {
        held_.notify_all();
    }
    return size;
}

void Proxy::give_back(std::size_t size) {
    const std::lock_guard guard(lock_);
    until_hold_ += size;
}

bool Proxy::is_open() {
    const std::lock_guard guard(lock_);
    return !holds_ || until_hold_ > 0;
}

void Proxy::hold_after(std::uint64_t bytes) {
    const std::lock_guard guard(lock_);
    holds_ = true;
    until_hold_ = bytes;
}

bool Proxy::await_hold() {
    std::unique_lock guard(lock_);
    return held_.wait_for(guard, std::chrono::seconds(30), [this] { return until_hold_ == 0; });
}

void Proxy::cut() {
    end_links(Fate::cut);
}

void Proxy::silence() {
    end_links(Fate::silent);
}

void Proxy::release() {
    const std::lock_guard guard(lock_);
    holds_ = false;
}

// Returns when the links that are to be cut have been.
void Proxy::end_links(Fate fate) {
    std::deque<std::unique_ptr<Link>> links;
    {
        const std::lock_guard guard(lock_);
        holds_ = false;
        for (const auto& link : links_) {
            if (fate == Fate::cut || link->fate == Fate::alive) {
                link->fate = fate;
            }
        }
        if (fate == Fate::cut) {
            links = std::exchange(links_, {});
        }
    }
    for (const auto& link : links) {
        link->thread.join();
    }
}

}  // namespace support
