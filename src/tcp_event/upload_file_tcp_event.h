#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "src/shared/live_node_record.h"
#include "src/tcp_event/tcp_event_base.h"
#include "src/tcp_event/temporary_file.h"

// What a client announced of the file that it sends, and what it meets.
struct UploadAnnouncement {
    bool encrypted = false;
    std::int64_t file_size = 0;
    std::int64_t file_time = 0;
    bool target_stays = false;  // an older file that couldn't be removed
};

// One running upload. Whatever ends it leaves a closed temporary file that bears the announced
// time: by that time, and its length, a later prepare recognises and continues it.
class UploadFileTcpEvent : public TcpEventBase {
  public:
    static constexpr EventKind kind = EventKind::upload;
    static constexpr const char* name = "upload_file_event";
    using Pointer = std::unique_ptr<UploadFileTcpEvent, EventRelease>;

    // Null if none can be made.
    static Pointer acquire();

    UploadFileTcpEvent() : TcpEventBase(kind) {}
    ~UploadFileTcpEvent() override;

    void release() override;
    const char* event_name() const override { return name; }

    // Begins to write behind the bytes that the open temporary file has.
    void begin(std::unique_ptr<TemporaryFile> temporary, const std::string& target_path,
               const UploadAnnouncement& announcement);

    // Writes the blocks of file data, at most File::most_pieces of them. How many were written
    // whole; written_size counts these and the one that failed.
    using Block = TemporaryFile::Block;
    std::size_t write(std::span<const Block> blocks);

    // Hands the temporary file on, as it is, to one who settles it.
    std::unique_ptr<TemporaryFile> take_temporary() { return std::move(temporary_); }

    void update_node_record(LiveNodeRecord& record) const;

    bool encrypted() const { return announcement_.encrypted; }
    const UploadAnnouncement& announcement() const { return announcement_; }
    // Bytes of the file held so far: the offset at the start, then growing with each block.
    std::int64_t written_size() const { return written_size_; }
    const std::string& target_path() const { return target_path_; }

  private:
    UploadAnnouncement announcement_;
    std::string target_path_;
    std::int64_t written_size_ = 0;
    std::unique_ptr<TemporaryFile> temporary_;
};
