#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Kestin::Net {

// One accepted connection, owned by the substrate. Its operations are called only from inside a
// callback of this same connection, and not after on_close.
class TcpConnectionBase {
  public:
    virtual ~TcpConnectionBase() = default;
    TcpConnectionBase(const TcpConnectionBase&) = delete;
    TcpConnectionBase& operator=(const TcpConnectionBase&) = delete;

    // The peer's IPv4 address as a dotted quad and its port in host order. Works in on_close too.
    virtual bool get_peer_address(std::string& address, std::uint16_t& port) = 0;

    // Bytes that wait in the receive buffer, as far as the service may take them now: 0 while the
    // peer has left more answers unread than the send buffer's mark, or a file. What is held back
    // is offered again, by on_recv, when the peer has read.
    virtual std::uint64_t recv_buffer_size() = 0;

    // Copy `length` bytes from the front and leave them, copy and remove them, or remove them.
    // False, with nothing changed, if fewer stand there.
    virtual bool recv_buffer_copy_len(void* destination, std::uint64_t length) = 0;
    virtual bool recv_buffer_move_len(void* destination, std::uint64_t length) = 0;
    virtual bool recv_buffer_drop_len(std::uint64_t length) = 0;

    // A hint that nothing can be read before `length` bytes stand there. on_recv isn't held back.
    virtual bool recv_buffer_need_len(std::uint64_t length) = 0;

    // Takes all of the bytes behind what waits already, to go out in that order. False, with none
    // taken: the bound of the send buffer is reached, or the connection is breaking.
    virtual bool send_buffer_fill_len(const void* data, std::uint64_t length) = 0;

    // A place behind what waits already for at most 64 KiB and 8 bytes, which the caller fills and
    // sends with `send_buffer_commit` before it sends anything else: a copy less. Null as above;
    // what isn't committed is as if it hadn't been asked for.
    virtual std::byte* send_buffer_room(std::uint64_t length) = 0;

    // Sends the first `length` bytes of the room, at most as many as were asked for.
    virtual void send_buffer_commit(std::uint64_t length) = 0;

    // The first `length` bytes where they lie, for a service that needs no copy of its own; they
    // stay there until they are dropped or moved, and the callback's end is the latest that they
    // may be read. Null if fewer stand there.
    virtual const std::uint8_t* recv_buffer_front(std::uint64_t length) = 0;

    // Takes the bytes and behind them the first `size` bytes of an open regular file, which are
    // read from it when they go out: however long that is, it takes no memory. The caller keeps the
    // descriptor. False, with none taken, as above. Nothing more is taken before all of it has gone
    // out; a file that turns out shorter by then ends the connection.
    virtual bool send_buffer_fill_file(std::string_view head, int descriptor,
                                       std::uint64_t size) = 0;

    // Called inside on_recv, on_send or on_close: asks for the same callback again after about 20
    // ms (retry_interval), although nothing new happens. The callback then returns true. Until the
    // retry the connection occupies no thread and gets no other callback; nothing that happens
    // meanwhile is lost. After a postponed on_close the connection stays as it is, until an
    // on_close that doesn't postpone.
    virtual void postpone() = 0;

    // Takes the head and, behind it, a reference to the body, which isn't copied: however many
    // connections send one body, it takes its memory once. False, with none taken, as above.
    // Nothing more is taken before all of it has gone out.
    virtual bool send_buffer_fill_shared(std::string_view head,
                                         std::shared_ptr<const std::string> body) = 0;

    // True once the unsent bytes have reached the mark (512 KiB), or as soon as memory is short: a
    // stream pauses here, and on_send continues it when the peer has read.
    virtual bool send_buffer_is_full() const = 0;

    // Closes the connection unless the service calls this again within `seconds`, and as soon as
    // on_recv leaves more than `bytes` in the receive buffer without taking any. Bytes that come
    // don't extend the time. It doesn't run while the peer has something to read, and starts anew
    // after that. (0, 0) expects nothing any more.
    virtual void expect_within(std::uint64_t bytes, std::uint64_t seconds) = 0;

    // One pointer of the service's, null when the connection is accepted.
    void set_user_data(void* user_data) { user_data_ = user_data; }
    void* get_user_data() const { return user_data_; }

  protected:
    TcpConnectionBase() = default;

  private:
    void* user_data_ = nullptr;
};

}  // namespace Kestin::Net
