#include "src/shared/live_node_record.h"

#include "src/shared/fixed_text.h"
#include "src/shared/locker_guard.h"

void LiveNodeRecord::reset(std::uint64_t node_id) {
    type_.store(NodeType::message, std::memory_order_relaxed);
    const LockerGuard guard(locker_);
    rest_ = NodeRecord{};
    rest_.node_id = node_id;
    fill_text(rest_.node_user_info, "{}");
    speed_.store(0, std::memory_order_relaxed);
    progress_.store(0, std::memory_order_relaxed);
    filesize_.store(0, std::memory_order_relaxed);
}

void LiveNodeRecord::set_peer(std::string_view address, std::uint16_t port) {
    const LockerGuard guard(locker_);
    fill_text(rest_.node_ip, address);
    rest_.node_port = port;
}

void LiveNodeRecord::set_user_info(std::string_view user_info) {
    const LockerGuard guard(locker_);
    fill_text(rest_.node_user_info, user_info);
}

void LiveNodeRecord::set_transfer(NodeType type, std::string_view filename, std::uint64_t filesize,
                                  double progress) {
    type_.store(type, std::memory_order_relaxed);
    write_filename(filename);
    filesize_.store(filesize, std::memory_order_relaxed);
    progress_.store(progress, std::memory_order_relaxed);
}

void LiveNodeRecord::clear_transfer() {
    write_filename({});
    speed_.store(0, std::memory_order_relaxed);
    filesize_.store(0, std::memory_order_relaxed);
    progress_.store(0, std::memory_order_relaxed);
}

// Only the writing thread calls this, and nobody else changes the texts, so it may compare without
// the locker.
void LiveNodeRecord::write_filename(std::string_view filename) KESTIN_UNCHECKED {
    filename = filename.substr(0, sizeof rest_.node_filename - 1);
    if (filename == rest_.node_filename) {
        return;
    }
    const LockerGuard guard(locker_);
    fill_text(rest_.node_filename, filename);
}

void LiveNodeRecord::copy_to(NodeRecord& out) const {
    {
        const LockerGuard guard(locker_);
        out = rest_;
    }
    out.node_type = type();
    out.node_speed = speed_.load(std::memory_order_relaxed);
    out.node_progress = progress_.load(std::memory_order_relaxed);
    out.node_filesize = filesize_.load(std::memory_order_relaxed);
}
