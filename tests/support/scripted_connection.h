#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kestin_net/tcp_connection_base.h"

namespace support {

// A connection without a socket, for the callbacks of a service: the test plays the peer and makes
// the faults that no real socket makes on demand.
class ScriptedConnection : public Kestin::Net::TcpConnectionBase {
  public:
    // What the peer sends, and what has been sent to it since the last `take_sent`.
    void feed(std::string_view bytes) { received_ += bytes; }
    std::string take_sent() { return std::exchange(sent_, {}); }

    // What the service has left in the receive buffer, and the last hint that it gave.
    const std::string& received() const { return received_; }
    std::uint64_t needed() const { return needed_; }

    // While set, the operation fails and changes nothing.
    bool fail_copy = false;
    bool fail_move = false;
    bool fail_drop = false;
    bool fail_fill = false;
    // While set, the next operation finds no memory; the one after that does.
    bool is_out_of_memory = false;
    // Whether the service has asked for its callback again.
    bool is_postponed = false;
    // The bytes that the send buffer holds before the rest of what came is held back.
    std::uint64_t send_mark = UINT64_MAX;

    // What the service last asked to be expected of the peer.
    std::uint64_t expected_bytes = 0;
    std::uint64_t expected_within = 0;

    std::string peer_address = "127.0.0.1";
    std::uint16_t peer_port = 40000;

    bool get_peer_address(std::string& address, std::uint16_t& port) override {
        use_memory();
        address = peer_address;
        port = peer_port;
        return true;
    }
    std::uint64_t recv_buffer_size() override {
        return sent_.size() > send_mark ? 0 : received_.size();
    }
    bool recv_buffer_copy_len(void* destination, std::uint64_t length) override {
        return !fail_copy && copy_front(destination, length);
    }
    bool recv_buffer_move_len(void* destination, std::uint64_t length) override {
        return !fail_move && copy_front(destination, length) && drop_front(length);
    }
    bool recv_buffer_drop_len(std::uint64_t length) override {
        return !fail_drop && drop_front(length);
    }
    bool recv_buffer_need_len(std::uint64_t length) override {
        needed_ = length;
        return true;
    }
    bool send_buffer_fill_len(const void* data, std::uint64_t length) override {
        use_memory();
        if (!fail_fill) {
            sent_.append(static_cast<const char*>(data), length);
        }
        return !fail_fill;
    }
    std::byte* send_buffer_room(std::uint64_t length) override {
        use_memory();
        room_.resize(length);
        return fail_fill ? nullptr : room_.data();
    }
    void send_buffer_commit(std::uint64_t length) override {
        sent_.append(reinterpret_cast<const char*>(room_.data()), length);
    }
    bool send_buffer_fill_file(std::string_view head, int descriptor, std::uint64_t size) override {
        std::string content(size, '\0');
        return ::pread(descriptor, content.data(), size, 0) == static_cast<ssize_t>(size) &&
               send_buffer_fill_len(head.data(), head.size()) &&
               send_buffer_fill_len(content.data(), size);
    }
    void postpone() override { is_postponed = true; }
    bool send_buffer_fill_shared(std::string_view head,
                                 std::shared_ptr<const std::string> body) override {
        return send_buffer_fill_len(head.data(), head.size()) &&
               send_buffer_fill_len(body->data(), body->size());
    }
    bool send_buffer_is_full() const override { return sent_.size() >= send_mark; }
    void expect_within(std::uint64_t bytes, std::uint64_t seconds) override {
        expected_bytes = bytes;
        expected_within = seconds;
    }
    const std::uint8_t* recv_buffer_front(std::uint64_t length) override {
        const bool fails = fail_move || length > received_.size();
        return fails ? nullptr : reinterpret_cast<const std::uint8_t*>(received_.data());
    }

  private:
    void use_memory() {
        if (std::exchange(is_out_of_memory, false)) {
            throw std::bad_alloc();
        }
    }
    bool copy_front(void* destination, std::uint64_t length) const {
        if (length > received_.size()) {
            return false;
        }
        std::memcpy(destination, received_.data(), length);
        return true;
    }
    bool drop_front(std::uint64_t length) {
        if (length > received_.size()) {
            return false;
        }
        received_.erase(0, length);
        return true;
    }

    std::string received_;
    std::string sent_;
    std::vector<std::byte> room_;
    std::uint64_t needed_ = 0;
};

}  // namespace support
