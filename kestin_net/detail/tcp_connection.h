#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kestin_net/detail/close_reason.h"
#include "kestin_net/detail/descriptor.h"
#include "kestin_net/detail/environment.h"
#include "kestin_net/detail/event_handler.h"
#include "kestin_net/detail/memory_account.h"
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
// A connection is held back while its peer leaves more than the mark unread, or anything at all
// while memory is short: nothing is read and nothing offered, until enough has gone out. A
// connection whose frame needs memory that can't be had waits in the retry queue.
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
    // For the relief of memory, called by one thread at a time, whoever has the connection: what it
    // holds of the budget, and whether and since when it waits for more.
    std::uint64_t held_memory() const { return account_.held(); }
    bool waits_for_memory() const { return waiting_since() != not_waiting; }
    Clock::rep waiting_since() const { return waiting_since_.load(std::memory_order_relaxed); }

    // Whether the connection holds memory and no byte has moved since `when`, as far as the calls
    // of this function saw.
    bool holds_silently_since(Clock::time_point when, Clock::time_point now);

    // The favorite may use the memory budget's reserve until its frame is complete. It is stalled
    // if it has moved no byte since the first time, or has been the favorite since the second.
    void favor(Clock::time_point now);
    bool is_favorite() const { return is_favorite_.load(std::memory_order_relaxed); }
    bool is_stalled(Clock::time_point stalled_since, Clock::time_point favored_since) const {
        return seen_at_ <= stalled_since || favored_at_ <= favored_since;
    }

    // Ends the connection, whoever has it, and logs the reason, which is one of close_reason.
    // Callable from every thread.
    void break_off(const CloseReason& reason);
    bool is_broken() const { return broken_by_.load(std::memory_order_relaxed) != nullptr; }

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
    bool send_buffer_is_full() const override { return send_chain_.is_full(); }
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

    bool is_held_back() const { return send_chain_.holds_back(); }
    bool can_read() const {
        return readable_ && !is_held_back() && !postponed_ && !memory_refused_;
    }
    bool can_offer() const { return offer_due_ && !is_held_back() && !postponed_; }
    bool can_write() const { return writable_ && !send_chain_.is_empty(); }
    bool can_ask() const;
    bool can_go_on() const;
    bool has_refused_bytes();
    bool is_finished() const;

    bool is_alone() const;
    bool await();
    bool arm();
    void wait_for_retry();
    std::uint32_t awaited_events() const;
    Clock::time_point next_deadline();
    Clock::time_point next_request_deadline();
    bool wait_for_memory();
    bool note_taken(bool is_taken);
    bool fail(const CloseReason& reason);
    void log_close();
    void end();

    Environment& environment_;
    Lane& lane_;
    const Descriptor socket_;
    const sockaddr_in peer_;
    const std::uint16_t listening_port_;
    MemoryAccount account_;
    ReceiveBuffer receive_buffer_;
    SendChain send_chain_;

    bool accepted_ = false;
    bool peer_finished_ = false;
    bool readable_ = false;
    bool writable_ = false;
    bool awaits_ = false;
    bool offer_due_ = false;
    bool postponed_ = false;
    bool memory_refused_ = false;
    bool hides_bytes_ = false;
    bool send_refused_ = false;
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

    // Why the connection ends, as far as a turn found out, and why another thread ended it.
    CloseReason reason_;
    std::atomic<const CloseReason*> broken_by_ = nullptr;

    // For the relief of memory, which alone touches what isn't atomic: all bytes ever moved, what
    // it saw of them and when.
    static constexpr Clock::rep not_waiting = 0;
    std::atomic<std::uint64_t> moved_ever_ = 0;
    std::atomic<Clock::rep> waiting_since_{not_waiting};
    std::atomic<bool> is_favorite_ = false;
    std::uint64_t seen_moved_ = 0;
    Clock::time_point seen_at_ = Clock::time_point::max();
    Clock::time_point favored_at_ = Clock::time_point::max();

    // Whether the peer may have bytes to acknowledge.
    std::atomic<bool> has_sent_ = false;

    // The deadline while the socket is armed, `no_deadline` also while the connection waits for its
    // retry, `held` while a thread has it. Written by the thread that gives the connection away and
    // read by the one that gets it, it hands over all other fields too.
    static constexpr Clock::rep no_deadline = Clock::time_point::max().time_since_epoch().count();
    static constexpr Clock::rep held = no_deadline - 1;
    std::atomic<Clock::rep> deadline_{held};
};

}  // namespace Kestin::Net::detail
