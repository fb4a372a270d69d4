#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/environment.h"
#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/receive_buffer.h"
#include "kestin_net/detail/retry_queue.h"
#include "kestin_net/detail/send_chain.h"
#include "kestin_net/tcp_connection_base.h"

namespace Kestin::Net::detail {

// Moved between a socket and its buffers in one turn; then the connection goes behind the others.
inline constexpr std::uint64_t turn_limit = mebibyte;

// Calls of on_send in a row that append nothing, after which there is nothing to send until the
// peer asks for something.
inline constexpr unsigned most_empty_sends = 4;

// How often in a row a thread stays with a connection at most, waiting for what comes next as long
// as the listener's time-out lets it.
inline constexpr int most_stays = 64;

// One accepted connection. Each event brings a turn, on the one thread that has the connection
// until it arms its socket again: read and offer, ask and write, as long as bytes move. With a
// connection that is alone in having events a thread stays for the next ones: what it touches is
// then still in its cache, and arming and the wake-up of another thread are saved.
//
// A connection is held back while its peer leaves more than the mark unread: nothing is read and
// nothing offered, until enough has gone out.
//
// A callback that the service postpones ends the turn: what is to be sent goes out, then the
// connection waits in the retry queue instead of the poller.
class TcpConnection final : public TcpConnectionBase, public RetryQueue::Entry {
  public:
    TcpConnection(Environment& environment, Lane& lane, Descriptor socket, const sockaddr_in& peer,
                  std::uint16_t listening_port);
    ~TcpConnection() override { --lane_.connections; }

    // Calls on_accept and begins the turns. False: the system refused to. Refused by whomever, the
    // connection is gone.
    bool start();

    void handle_events(std::uint32_t events) override;

    // Whether a thread has the connection at this moment. Callable from every thread.
    bool is_held() const { return deadline_.load(std::memory_order_acquire) == held; }

    // Callable from every thread: makes the next turn the last one if the deadline has passed. The
    // deadline that still stands, or Clock::time_point::max().
    Clock::time_point break_if_overdue(Clock::time_point now);

    // Ends the connection if bytes have been sent and the peer has vanished. True if the peer still
    // has some to acknowledge. Callable from every thread, not from two at the same time.
    bool check_peer();

    // Makes the peer see an end, whoever has the connection. Callable from every thread.
    void shut();

    // Calls on_close, if on_accept took the connection. False: the service postponed it.
    bool announce_end();

    bool get_peer_address(std::string& address, std::uint16_t& port) override;
    std::uint64_t recv_buffer_size() override;
    bool recv_buffer_copy_len(void* destination, std::uint64_t length) override;
    bool recv_buffer_move_len(void* destination, std::uint64_t length) override;
    bool recv_buffer_drop_len(std::uint64_t length) override;
    bool recv_buffer_need_len(std::uint64_t length) override;
    bool send_buffer_fill_len(const void* data, std::uint64_t length) override;
    std::byte* send_buffer_room(std::uint64_t length) override;
    void send_buffer_commit(std::uint64_t length) override;
    bool send_buffer_is_full() const override { return send_chain_.size() >= send_mark; }
    bool send_buffer_fill_shared(std::string_view head,
                                 std::shared_ptr<const std::string> body) override;
    const std::uint8_t* recv_buffer_front(std::uint64_t length) override;
    void expect_within(std::uint64_t bytes, std::uint64_t seconds) override;
    bool send_buffer_fill_file(std::string_view head, int descriptor, std::uint64_t size) override;
    void postpone() override { postponed_ = true; }

  private:
    // The turns, the single one and its steps; false ends the connection.
    bool take_turns(std::uint32_t events);
    bool take_turn();
    bool read();
    bool offer();
    bool offer_once();
    bool ask();
    bool write();
    bool write_blocks();
    bool write_file();
    void note_sent();
    void abort();
    bool has_taken(ssize_t size, std::uint64_t given);

    bool is_held_back() const { return send_chain_.is_above_mark(); }
    bool can_read() const { return readable_ && !is_held_back() && !postponed_; }
    bool can_offer() const { return offer_due_ && !is_held_back() && !postponed_; }
    bool can_write() const { return writable_ && !send_chain_.is_empty(); }
    bool can_ask() const;
    bool can_go_on() const;
    bool is_stuck() const;
    bool is_finished() const;

    bool is_alone() const;
    bool await();
    bool arm();
    void wait_for_retry();
    std::uint32_t awaited_events() const;
    Clock::time_point next_deadline();
    Clock::time_point next_request_deadline();
    void end();

    Environment& environment_;
    Lane& lane_;
    const Descriptor socket_;
    const sockaddr_in peer_;
    const std::uint16_t listening_port_;
    ReceiveBuffer receive_buffer_;
    SendChain send_chain_;

    bool accepted_ = false;
    bool peer_finished_ = false;
    bool readable_ = false;
    bool writable_ = false;
    bool awaits_ = false;
    bool offer_due_ = false;
    bool postponed_ = false;
    bool ended_ = false;
    unsigned empty_sends_ = 0;
    std::uint64_t moved_ = 0;

    // What the service expects of the peer (expect_within); no time, nothing. The clock stands
    // while the peer has something to read, and starts anew behind that.
    struct Expectation {
        std::uint64_t bytes = 0;
        Clock::duration time{0};
        Clock::time_point deadline = Clock::time_point::max();
    };
    Expectation expectation_;

    // Whether the peer may have bytes to acknowledge.
    std::atomic<bool> has_sent_ = false;

    // The deadline while the socket is armed, `no_deadline` also while the connection waits for its
    // retry, `held` while a thread has it, `broken` once the deadline has passed. Written by the
    // thread that gives the connection away and read by the one that gets it, it hands over all
    // other fields too.
    static constexpr Clock::rep no_deadline = Clock::time_point::max().time_since_epoch().count();
    static constexpr Clock::rep held = no_deadline - 1;
    static constexpr Clock::rep broken = Clock::time_point::min().time_since_epoch().count();
    std::atomic<Clock::rep> deadline_{held};
};

}  // namespace Kestin::Net::detail
