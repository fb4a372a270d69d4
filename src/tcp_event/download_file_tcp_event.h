#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestin_base/file.h"
#include "src/shared/live_node_record.h"
#include "src/tcp_event/tcp_event_base.h"

// One running download. The file is closed until the first data request, and again once its end
// was read; each data request opens it afresh.
class DownloadFileTcpEvent : public TcpEventBase {
  public:
    static constexpr EventKind kind = EventKind::download;
    static constexpr const char* name = "download_file_event";
    using Pointer = std::unique_ptr<DownloadFileTcpEvent, EventRelease>;

    // Null if none can be made.
    static Pointer acquire();

    DownloadFileTcpEvent() : TcpEventBase(kind) {}

    void release() override;
    const char* event_name() const override { return name; }

    // Names the file; `size` serves the progress figure only. Nothing is opened.
    void set_file(bool encrypted, const std::string& path, std::int64_t size);

    bool open();
    bool seek(std::int64_t offset);

    // Up to `capacity` bytes; their number goes to `read_length`, 0 at the end of the file.
    bool read(char* buffer, std::uint32_t capacity, std::uint32_t& read_length);

    // Whether so many bytes are left of what the file held when it was opened.
    bool has_left(std::uint32_t length) const;

    // Closes the file and is true if it is open and its end has been read.
    bool close_at_end();

    // `sent`: what the caller has sent of the present batch and the peer hence can't have yet.
    void update_node_record(std::int64_t sent, LiveNodeRecord& record) const;

    bool encrypted() const { return encrypted_; }
    const std::string& path() const { return path_; }

  private:
    bool encrypted_ = false;
    std::string path_;
    std::int64_t size_ = 0;
    std::int64_t position_ = 0;
    Kestin::Base::File file_;
};
