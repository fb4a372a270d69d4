#include "src/tcp_event/upload_file_tcp_event.h"

#include <algorithm>
#include <new>

#include "kestin_base/clock.h"
#include "kestin_base/file_system.h"

using Kestin::Base::file_set_time;

namespace {

// Room is set aside for files larger than the first, and never more than the second at a time.
constexpr std::int64_t least_reserve = 1 << 20;
constexpr std::int64_t most_reserve = 64 << 20;

std::uint64_t total_length(std::span<const UploadFileTcpEvent::Block> blocks) {
    std::uint64_t total = 0;
    for (const auto& block : blocks) {
        total += block.size();
    }
    return total;
}

}  // namespace

UploadFileTcpEvent::Pointer UploadFileTcpEvent::acquire() {
    return Pointer(new (std::nothrow) UploadFileTcpEvent);
}

// An older file that couldn't be removed must not be taken for the client's.
UploadFileTcpEvent::~UploadFileTcpEvent() {
    close();
    if (!target_path_.empty() && !announcement_.target_stays) {
        file_set_time(target_path_.c_str(), announcement_.file_time);
    }
}

void UploadFileTcpEvent::release() {
    delete this;
}

bool UploadFileTcpEvent::open(UploadClaim claim, const std::string& target_path,
                              const std::string& temp_path, std::int64_t offset,
                              const UploadAnnouncement& announcement) {
    claim_ = std::move(claim);
    target_path_ = target_path;
    temp_path_ = temp_path;
    written_size_ = offset;
    announcement_ = announcement;
    is_intact_ = (file_.is_open() || file_.open(temp_path_.c_str(), true, false)) &&
                 file_.size_at_open() == offset;
    return is_intact_;
}

std::size_t UploadFileTcpEvent::write(std::span<const Block> blocks) {
    reserve_ahead(total_length(blocks));
    const std::size_t written = file_.write_pieces(blocks);
    written_size_ +=
        static_cast<std::int64_t>(total_length(blocks.first(std::min(written + 1, blocks.size()))));
    return written;
}

// As much again as the client has sent already, so that one which only announces gets nothing.
void UploadFileTcpEvent::reserve_ahead(std::uint64_t length) {
    const std::int64_t next_size = written_size_ + static_cast<std::int64_t>(length);
    if (next_size <= reserved_size_ || written_size_ < least_reserve) {
        return;
    }
    const std::int64_t missing = announcement_.file_size - written_size_;
    const std::int64_t reserve = std::min({missing, written_size_, most_reserve});
    if (reserve > 0) {
        file_.reserve(static_cast<std::uint64_t>(reserve));
    }
    reserved_size_ = written_size_ + reserve;
}

// A temporary file that lost bytes, or was none of this upload, bears the time of its last write,
// so that no prepare takes it for the beginning of the client's file.
bool UploadFileTcpEvent::close() {
    if (!file_.is_open()) {
        return is_intact_;
    }
    // The stamp vouches for bytes on the disk.
    is_intact_ = is_intact_ && (written_size_ == announcement_.file_size || file_.sync());
    is_stamped_ = is_intact_ && file_.set_time(announcement_.file_time);
    if (!file_.close() && is_intact_) {
        is_intact_ = is_stamped_ = false;
        file_set_time(temp_path_.c_str(), static_cast<std::int64_t>(Kestin::Base::kestin_time()));
    }
    return is_intact_;
}

void UploadFileTcpEvent::update_node_record(LiveNodeRecord& record) const {
    const double progress = 100.0 * (static_cast<double>(written_size_) + 1) /
                            (static_cast<double>(announcement_.file_size) + 1);
    record.set_transfer(NodeType::upload, target_path_,
                        static_cast<std::uint64_t>(announcement_.file_size), progress);
}
