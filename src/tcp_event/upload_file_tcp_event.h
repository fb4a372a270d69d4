#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "kestin_base/file.h"
#include "src/shared/live_node_record.h"
#include "src/tcp_event/tcp_event_base.h"
#include "src/tcp_event/upload_claim.h"

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

    // Makes the temporary file, ahead of `open`. False: something stands there already, or it can't
    // be made.
    bool create(const std::string& temp_path) { return file_.create(temp_path.c_str()); }

    // Opens the temporary file, if `create` hasn't, which holds `offset` bytes already, to write
    // behind them; false also if it holds another number. The claim is the event's from here on,
    // also on false.
    bool open(UploadClaim claim, const std::string& target_path, const std::string& temp_path,
              std::int64_t offset, const UploadAnnouncement& announcement);

    // Writes the blocks of file data, at most File::most_pieces of them. How many were written
    // whole; written_size counts these and the one that failed.
    using Block = Kestin::Base::File::Piece;
    std::size_t write(std::span<const Block> blocks);

    // Stamps and closes the temporary file ahead of the event's end. False: the system reports only
    // now that bytes were lost, and the file isn't to be continued.
    bool close();

    // Whether the closed temporary file is known to bear the announced time.
    bool is_stamped() const { return is_stamped_; }

    // The event's end doesn't stamp what may come to stand at the target.
    void spare_target() { announcement_.target_stays = true; }

    // Keeps the names claimed beyond the event's end.
    UploadClaim take_claim() { return std::move(claim_); }

    void update_node_record(LiveNodeRecord& record) const;

    bool encrypted() const { return announcement_.encrypted; }
    std::int64_t file_size() const { return announcement_.file_size; }
    std::int64_t file_time() const { return announcement_.file_time; }
    // Bytes of the file held so far: the offset at the start, then growing with each block.
    std::int64_t written_size() const { return written_size_; }
    const std::string& target_path() const { return target_path_; }
    const std::string& temp_path() const { return temp_path_; }

  private:
    void reserve_ahead(std::uint64_t length);

    UploadAnnouncement announcement_;
    std::string target_path_;
    std::string temp_path_;
    std::int64_t written_size_ = 0;
    std::int64_t reserved_size_ = 0;
    bool is_intact_ = false;  // the temporary file is the beginning of the client's
    bool is_stamped_ = false;
    UploadClaim claim_;
    Kestin::Base::File file_;
};
