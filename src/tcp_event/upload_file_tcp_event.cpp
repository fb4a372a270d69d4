#include "src/tcp_event/upload_file_tcp_event.h"

#include <new>

#include "kestin_base/file_system.h"

UploadFileTcpEvent::Pointer UploadFileTcpEvent::acquire() {
    return Pointer(new (std::nothrow) UploadFileTcpEvent);
}

UploadFileTcpEvent::~UploadFileTcpEvent() {
    close();
    if (!target_path_.empty()) {
        stamp_files();
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
    return file_.open(temp_path_.c_str(), true, false);
}

bool UploadFileTcpEvent::write(const std::uint8_t* data, std::uint64_t length) {
    written_size_ += static_cast<std::int64_t>(length);
    return file_.write(reinterpret_cast<const char*>(data), length);
}

bool UploadFileTcpEvent::close() {
    is_intact_ = file_.close() && is_intact_;
    return is_intact_;
}

void UploadFileTcpEvent::update_node_record(LiveNodeRecord& record) const {
    const double progress = 100.0 * (static_cast<double>(written_size_) + 1) /
                            (static_cast<double>(announcement_.file_size) + 1);
    record.set_transfer(NodeType::upload, target_path_,
                        static_cast<std::uint64_t>(announcement_.file_size), progress);
}

// A temporary file that lost bytes keeps the time of its last write, so that no prepare takes it
// for the beginning of the client's file.
void UploadFileTcpEvent::stamp_files() {
    if (is_intact_) {
        Kestin::Base::file_set_time(temp_path_.c_str(), announcement_.file_time);
    }
    Kestin::Base::file_set_time(target_path_.c_str(), announcement_.file_time);
}
