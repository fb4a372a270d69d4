#include "src/tcp_event/download_file_tcp_event.h"

#include <algorithm>
#include <new>

DownloadFileTcpEvent::Pointer DownloadFileTcpEvent::acquire() {
    return Pointer(new (std::nothrow) DownloadFileTcpEvent);
}

void DownloadFileTcpEvent::release() {
    delete this;
}

void DownloadFileTcpEvent::set_file(bool encrypted, const std::string& path, std::int64_t size) {
    encrypted_ = encrypted;
    path_ = path;
    size_ = size;
}

bool DownloadFileTcpEvent::open() {
    position_ = 0;
    return file_.open(path_.c_str(), false, false);
}

bool DownloadFileTcpEvent::seek(std::int64_t offset) {
    position_ = offset;
    return file_.seek(offset);
}

bool DownloadFileTcpEvent::read(char* buffer, std::uint32_t capacity, std::uint32_t& read_length) {
    std::uint64_t got = 0;
    const bool read = file_.read(buffer, capacity, got);
    read_length = static_cast<std::uint32_t>(got);
    position_ += static_cast<std::int64_t>(got);
    return read;
}

bool DownloadFileTcpEvent::has_left(std::uint32_t length) const {
    return file_.size_at_open() - position_ >= std::int64_t{length};
}

bool DownloadFileTcpEvent::close_at_end() {
    if (!file_.is_open() || !file_.is_eof()) {
        return false;
    }
    file_.close();
    return true;
}

void DownloadFileTcpEvent::update_node_record(std::int64_t sent, LiveNodeRecord& record) const {
    const auto done = static_cast<double>(std::max<std::int64_t>(position_ - sent, 0));
    record.set_transfer(NodeType::download, path_, static_cast<std::uint64_t>(size_),
                        100.0 * (done + 1) / (static_cast<double>(size_) + 1));
}
