#include "src/tcp_event/upload_file_tcp_event.h"

#include <algorithm>
#include <new>

namespace {

std::int64_t total_length(std::span<const UploadFileTcpEvent::Block> blocks) {
    std::size_t total = 0;
    for (const auto& block : blocks) {
        total += block.size();
    }
    return static_cast<std::int64_t>(total);
}

}  // namespace

UploadFileTcpEvent::Pointer UploadFileTcpEvent::acquire() {
    return Pointer(new (std::nothrow) UploadFileTcpEvent);
}

UploadFileTcpEvent::~UploadFileTcpEvent() {
    if (temporary_ != nullptr) {
        temporary_->settle();
    }
}

void UploadFileTcpEvent::release() {
    delete this;
}

void UploadFileTcpEvent::begin(std::unique_ptr<TemporaryFile> temporary,
                               const std::string& target_path,
                               const UploadAnnouncement& announcement) {
    temporary_ = std::move(temporary);
    target_path_ = target_path;
    announcement_ = announcement;
    written_size_ = temporary_->begin(announcement.file_size, announcement.file_time);
}

std::size_t UploadFileTcpEvent::write(std::span<const Block> blocks) {
    const std::size_t written = temporary_->write(blocks);
    written_size_ += total_length(blocks.first(std::min(written + 1, blocks.size())));
    return written;
}

void UploadFileTcpEvent::update_node_record(LiveNodeRecord& record) const {
    const double progress = 100.0 * (static_cast<double>(written_size_) + 1) /
                            (static_cast<double>(announcement_.file_size) + 1);
    record.set_transfer(NodeType::upload, target_path_,
                        static_cast<std::uint64_t>(announcement_.file_size), progress);
}
