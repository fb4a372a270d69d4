#include "kestin_net/detail/tcp_connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

#include "kestin_base/log.h"

namespace Kestin::Net::detail {
namespace {

// Blocks that one system call writes: about a turn's worth.
constexpr std::size_t blocks_per_write = turn_limit / send_block_size + 1;

std::uint64_t total_size(std::span<const iovec> pieces) {
    std::uint64_t total = 0;
    for (const iovec& piece : pieces) {
        total += piece.iov_len;
    }
    return total;
}

// The error that waits on the socket, or 0.
int pending_error(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

// Whether the peer sends nothing more than what has come already.
bool has_finished(int socket) {
    pollfd state{.fd = socket, .events = POLLRDHUP, .revents = 0};
    return ::poll(&state, 1, 0) == 1;
}

CloseReason failed_call(const char* name, int error) {
    return {name, error, error == ECONNRESET || error == EPIPE};
}

}  // namespace

TcpConnection::TcpConnection(Environment& environment, Lane& lane, Descriptor socket,
                             const sockaddr_in& peer, std::uint16_t listening_port)
    : environment_(environment),
      lane_(lane),
      socket_(std::move(socket)),
      peer_(peer),
      listening_port_(listening_port),
      account_(environment.memory.budget),
      receive_buffer_(environment.memory, account_),
      send_chain_(environment.memory, account_) {
    ++lane_.connections;
}

bool TcpConnection::start() {
    accepted_ = environment_.service.on_accept(this, listening_port_);
    if (!accepted_) {
        end();
        return true;
    }
    const Clock::time_point deadline = next_deadline();
    deadline_.store(deadline.time_since_epoch().count(), std::memory_order_release);
    if (deadline != Clock::time_point::max()) {
        environment_.timer.wake_by(deadline);
    }
    if (!lane_.workers.poller().add(socket_.number(), EPOLLIN | EPOLLOUT, *this)) {
        end();
        return false;
    }
    return true;
}

void TcpConnection::handle_events(std::uint32_t events) {
    deadline_.exchange(held, std::memory_order_acquire);
    if (std::exchange(postponed_, false)) {
        // Bytes that wait to be offered again are enough: more are read when these were taken.
        events = EPOLLOUT | (offer_due_ ? 0U : std::uint32_t{EPOLLIN});
    }
    if (std::exchange(memory_refused_, false)) {
        events = EPOLLOUT | EPOLLIN;
    }
    const bool goes_on = !ended_ && !is_broken() && take_turns(events);
    if (goes_on && (postponed_ || memory_refused_)) {
        wait_for_retry();
    } else if (!goes_on || !arm()) {
        end();
    }
}

Clock::time_point TcpConnection::break_if_overdue(Clock::time_point now) {
    Clock::rep deadline = deadline_.load(std::memory_order_relaxed);
    if (deadline == held) {
        return Clock::time_point::max();
    }
    const Clock::time_point when{Clock::duration(deadline)};
    if (when > now) {
        return when;
    }
    if (deadline_.compare_exchange_strong(deadline, no_deadline, std::memory_order_acq_rel)) {
        break_off(close_reason::no_request);
    }
    return Clock::time_point::max();
}

bool TcpConnection::check_peer() {
    if (!has_sent_.exchange(false)) {
        return false;
    }
    switch (look_at_peer(socket_.number(), environment_.settings.silence_limit)) {
        case PeerState::answered:
            return false;
        case PeerState::awaited:
            has_sent_ = true;
            return true;
        case PeerState::gone:
            abort();
            return false;
    }
    return false;
}

// What the peer hasn't acknowledged is thrown away at the close.
void TcpConnection::abort() {
    constexpr linger no_linger{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket_.number(), SOL_SOCKET, SO_LINGER, &no_linger, sizeof no_linger);
    break_off(close_reason::vanished);
}

void TcpConnection::shut() {
    ::shutdown(socket_.number(), SHUT_RDWR);
}

// One that waits for memory may not move bytes.
bool TcpConnection::holds_silently_since(Clock::time_point when, Clock::time_point now) {
    const std::uint64_t moved = moved_ever_.load(std::memory_order_relaxed);
    if (moved != seen_moved_ || seen_at_ == Clock::time_point::max()) {
        seen_moved_ = moved;
        seen_at_ = now;
    }
    return held_memory() > 0 && seen_at_ <= when && !waits_for_memory();
}

void TcpConnection::favor(Clock::time_point now) {
    seen_at_ = favored_at_ = now;
    is_favorite_.store(true, std::memory_order_relaxed);
}

// A shut socket ends a turn that runs, and brings another to a connection that waits.
void TcpConnection::break_off(const CloseReason& reason) {
    const CloseReason* none = nullptr;
    if (broken_by_.compare_exchange_strong(none, &reason)) {
        shut();
    }
}

bool TcpConnection::announce_end() {
    postponed_ = false;
    if (accepted_) {
        environment_.service.on_close(this);
    }
    return !postponed_;
}

bool TcpConnection::take_turns(std::uint32_t events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        const int error = pending_error(socket_.number());
        return error != 0 && fail(failed_call("its socket", error));
    }
    const bool again = environment_.last_served.exchange(this, std::memory_order_relaxed) == this;
    readable_ = (events & EPOLLIN) != 0;
    writable_ = (events & EPOLLOUT) != 0 || send_chain_.is_empty();
    int stays = again ? most_stays : 0;
    do {
        if (!take_turn()) {
            return false;
        }
    } while (moved_ > 0 && stays-- > 0 && !postponed_ && !memory_refused_ && is_alone() && await());
    return true;
}

bool TcpConnection::take_turn() {
    moved_ = 0;
    do {
        if (!read() || !offer() || !ask() || !write()) {
            return false;
        }
    } while (can_go_on());
    receive_buffer_.settle();
    if (is_favorite() && receive_buffer_.size() <= receive_floor) {
        is_favorite_.store(false, std::memory_order_relaxed);
    }
    moved_ever_.store(moved_ever_.load(std::memory_order_relaxed) + moved_,
                      std::memory_order_relaxed);
    environment_.memory_relief.call(memory_refused_);
    return postponed_ || !is_finished();
}

bool TcpConnection::read() {
    if (!can_read()) {
        return true;
    }
    auto room = receive_buffer_.room();
    if (room.empty() && (is_favorite() || has_finished(socket_.number()))) {
        room = receive_buffer_.last_room();
    }
    if (room.empty()) {
        return wait_for_memory();
    }
    if (waits_for_memory()) {
        waiting_since_.store(not_waiting, std::memory_order_relaxed);
    }
    const int flags = std::exchange(awaits_, false) ? 0 : MSG_DONTWAIT;
    const ssize_t size = ::recv(socket_.number(), room.data(), room.size(), flags);
    if (size < 0) {
        readable_ = errno == EINTR;
        return errno == EINTR || errno == EAGAIN || fail(failed_call("recv", errno));
    }
    // Less than there was room for: the socket is empty, and another call would only say so.
    const auto length = static_cast<std::uint64_t>(size);
    readable_ = length == room.size();
    peer_finished_ = length == 0;
    offer_due_ = offer_due_ || length > 0;
    receive_buffer_.commit(length);
    moved_ += length;
    return true;
}

// The frame's next bytes stay in the socket until a retry finds memory for them.
bool TcpConnection::wait_for_memory() {
    memory_refused_ = true;
    if (!waits_for_memory()) {
        waiting_since_.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    }
    return true;
}

bool TcpConnection::offer() {
    while (can_offer()) {
        if (!offer_once()) {
            return false;
        }
    }
    return true;
}

bool TcpConnection::offer_once() {
    const std::uint64_t position = receive_buffer_.removed();
    empty_sends_ = 0;
    hides_bytes_ = send_refused_ = false;
    if (!environment_.service.on_recv(this)) {
        return send_refused_ && fail(close_reason::send_refused);
    }
    if (postponed_) {
        return true;
    }
    const bool took = receive_buffer_.removed() != position;
    const bool is_withheld = hides_bytes_ || is_held_back();
    offer_due_ = !receive_buffer_.is_empty() && (took || is_withheld);
    return took || is_withheld || !has_refused_bytes();
}

bool TcpConnection::ask() {
    while (can_ask()) {
        const std::uint64_t appended = send_chain_.appended();
        send_refused_ = false;
        if (!environment_.service.on_send(this)) {
            return send_refused_ && fail(close_reason::send_refused);
        }
        if (postponed_) {
            return true;
        }
        empty_sends_ = send_chain_.appended() != appended ? 0 : empty_sends_ + 1;
    }
    return true;
}

bool TcpConnection::write() {
    if (!can_write()) {
        return true;
    }
    return send_chain_.starts_with_file() ? write_file() : write_blocks();
}

bool TcpConnection::write_blocks() {
    std::array<iovec, blocks_per_write> slots;
    const auto front = send_chain_.front(slots);
    msghdr message{};
    message.msg_iov = front.data();
    message.msg_iovlen = front.size();
    const int more = send_chain_.file() != nullptr ? MSG_MORE : 0;
    const ssize_t size = ::sendmsg(socket_.number(), &message, MSG_NOSIGNAL | MSG_DONTWAIT | more);
    if (size > 0) {
        send_chain_.drop_front(static_cast<std::uint64_t>(size));
    }
    return has_taken(size, total_size(front));
}

bool TcpConnection::write_file() {
    const FileRange& range = *send_chain_.file();
    const std::uint64_t length = std::min(range.length, turn_limit);
    off_t position = range.position;
    const ssize_t size = ::sendfile(socket_.number(), range.file.number(), &position, length);
    if (size == 0) {
        return fail(close_reason::file_too_short);
    }
    if (size > 0) {
        send_chain_.drop_of_file(static_cast<std::uint64_t>(size));
    }
    return has_taken(size, length);
}

// `size`: what the call told to which so many bytes were given. Less than that: the socket is full,
// and another call would only say so.
bool TcpConnection::has_taken(ssize_t size, std::uint64_t given) {
    if (size < 0) {
        writable_ = errno == EINTR;
        return errno == EINTR || errno == EAGAIN || fail(failed_call("send", errno));
    }
    writable_ = static_cast<std::uint64_t>(size) == given;
    moved_ += static_cast<std::uint64_t>(size);
    note_sent();
    return true;
}

void TcpConnection::note_sent() {
    if (!has_sent_.load(std::memory_order_relaxed)) {
        has_sent_ = true;
    }
    environment_.peer_watch.note_sent();
}

bool TcpConnection::can_ask() const {
    return writable_ && !postponed_ && empty_sends_ < most_empty_sends && !send_chain_.is_full() &&
           !send_chain_.ends_with_range();
}

// What a full socket keeps from going out can't make the turn long: it is offered to the end, since
// no event would tell of it later.
bool TcpConnection::can_go_on() const {
    if (moved_ >= turn_limit && writable_) {
        return false;
    }
    return can_offer() || (moved_ < turn_limit && (can_read() || can_ask() || can_write()));
}

// The service waits for bytes that there will be no room for, or for more than it expected.
bool TcpConnection::has_refused_bytes() {
    if (receive_buffer_.is_full()) {
        return !fail(close_reason::frame_too_large);
    }
    return expectation_.time.count() > 0 && receive_buffer_.size() > expectation_.bytes &&
           !fail(close_reason::request_too_long);
}

// The peer has sent its last byte, all is answered and all answers are out.
bool TcpConnection::is_finished() const {
    return peer_finished_ && send_chain_.is_empty() && !offer_due_ && !can_ask();
}

// All other threads wait for events, and none of them took one since.
bool TcpConnection::is_alone() const {
    return lane_.workers.others_wait() &&
           environment_.last_served.load(std::memory_order_relaxed) == this;
}

// If nothing but the peer's next bytes is waited for, the next turn begins with a read that waits
// for them, as long as the socket's time-out lets it.
bool TcpConnection::await() {
    if (awaited_events() != EPOLLIN) {
        return false;
    }
    return readable_ = writable_ = awaits_ = true;
}

// Once the deadline is told, another thread may have the connection: all that is needed is looked
// up before.
bool TcpConnection::arm() {
    const int socket = socket_.number();
    const std::uint32_t events = awaited_events();
    const Clock::time_point deadline = next_deadline();
    Poller& poller = lane_.workers.poller();
    WakeTimer& timer = environment_.timer;
    deadline_.store(deadline.time_since_epoch().count(), std::memory_order_release);
    if (deadline != Clock::time_point::max()) {
        timer.wake_by(deadline);
    }
    return poller.arm(socket, events, *this);
}

// After this the connection is another thread's.
void TcpConnection::wait_for_retry() {
    deadline_.store(no_deadline, std::memory_order_release);
    lane_.workers.retries().add(*this);
}

std::uint32_t TcpConnection::awaited_events() const {
    const bool reads = !peer_finished_ && !is_held_back();
    const bool writes = !send_chain_.is_empty() || can_ask() || can_offer();
    return (reads ? std::uint32_t{EPOLLIN} : 0) | (writes ? std::uint32_t{EPOLLOUT} : 0);
}

Clock::time_point TcpConnection::next_deadline() {
    const auto idle_limit = environment_.settings.idle_limit;
    const auto idle_deadline =
        idle_limit.count() > 0 ? Clock::now() + idle_limit : Clock::time_point::max();
    return std::min(idle_deadline, next_request_deadline());
}

Clock::time_point TcpConnection::next_request_deadline() {
    if (expectation_.time.count() == 0 || !send_chain_.is_empty()) {
        expectation_.deadline = Clock::time_point::max();
    } else if (expectation_.deadline == Clock::time_point::max()) {
        expectation_.deadline = Clock::now() + expectation_.time;
    }
    return expectation_.deadline;
}

// Notes the first reason and returns false.
bool TcpConnection::fail(const CloseReason& reason) {
    if (reason_.text == nullptr) {
        reason_ = reason;
    }
    return false;
}

// An end that the peer or the service chose isn't logged here.
void TcpConnection::log_close() {
    const CloseReason* const broken_by = broken_by_.load(std::memory_order_acquire);
    const CloseReason reason = broken_by != nullptr ? *broken_by : reason_;
    if (reason.text == nullptr) {
        return;
    }
    std::string address;
    std::uint16_t port = 0;
    get_peer_address(address, port);
    // Text that takes no memory, which may be what is missing.
    const char* const cause = reason.error != 0 ? ::strerrordesc_np(reason.error) : nullptr;
    kestin_run_log(reason.is_common ? KESTIN_LOG_DEBUG : KESTIN_LOG_WARNING, "kestin_net",
                   "TcpConnection::end", __LINE__, "connection <%s:%d> closed: %s%s%s",
                   address.c_str(), port, reason.text, cause != nullptr ? ": " : "",
                   cause != nullptr ? cause : "");
}

// What the service said before it refused the peer still goes out, as far as the socket takes it.
void TcpConnection::end() {
    if (!std::exchange(ended_, true)) {
        log_close();
    }
    write();
    if (!announce_end()) {
        return wait_for_retry();
    }
    lane_.workers.poller().remove(socket_.number());
    // Before the set forgets the connection, so that the relief of memory never misses it.
    receive_buffer_.clear();
    send_chain_.clear();
    environment_.connections.remove(*this);
}

bool TcpConnection::get_peer_address(std::string& address, std::uint16_t& port) {
    std::array<char, INET_ADDRSTRLEN> text{};
    if (::inet_ntop(AF_INET, &peer_.sin_addr, text.data(), text.size()) == nullptr) {
        return false;
    }
    address = text.data();
    port = ntohs(peer_.sin_port);
    return true;
}

std::uint64_t TcpConnection::recv_buffer_size() {
    hides_bytes_ = is_held_back();
    return hides_bytes_ ? 0 : receive_buffer_.size();
}

bool TcpConnection::recv_buffer_copy_len(void* destination, std::uint64_t length) {
    return receive_buffer_.copy(destination, length);
}

bool TcpConnection::recv_buffer_move_len(void* destination, std::uint64_t length) {
    return receive_buffer_.copy(destination, length) && receive_buffer_.drop(length);
}

bool TcpConnection::recv_buffer_drop_len(std::uint64_t length) {
    return receive_buffer_.drop(length);
}

bool TcpConnection::recv_buffer_need_len(std::uint64_t length) {
    return length <= receive_limit;
}

bool TcpConnection::send_buffer_fill_len(const void* data, std::uint64_t length) {
    return note_taken(send_chain_.append(data, length));
}

bool TcpConnection::note_taken(bool is_taken) {
    send_refused_ = send_refused_ || !is_taken;
    return is_taken;
}

std::byte* TcpConnection::send_buffer_room(std::uint64_t length) {
    return send_chain_.room(length);
}

void TcpConnection::send_buffer_commit(std::uint64_t length) {
    send_chain_.commit(length);
}

// sendfile(2) waits on a socket that isn't itself one that never does.
bool TcpConnection::send_buffer_fill_file(std::string_view head, int descriptor,
                                          std::uint64_t size) {
    Descriptor file(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    return file.is_open() && ::fcntl(socket_.number(), F_SETFL, O_NONBLOCK) == 0 &&
           send_chain_.append_file(std::as_bytes(std::span(head)), std::move(file), size);
}

bool TcpConnection::send_buffer_fill_shared(std::string_view head,
                                            std::shared_ptr<const std::string> body) {
    return note_taken(send_chain_.append_shared(std::as_bytes(std::span(head)), std::move(body)));
}

void TcpConnection::expect_within(std::uint64_t bytes, std::uint64_t seconds) {
    expectation_ = {.bytes = bytes, .time = std::chrono::seconds(seconds)};
}

const std::uint8_t* TcpConnection::recv_buffer_front(std::uint64_t length) {
    return reinterpret_cast<const std::uint8_t*>(receive_buffer_.front(length));
}

}  // namespace Kestin::Net::detail
