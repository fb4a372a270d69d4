#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "client/detail/file_watch.h"
#include "client/detail/remote_folders.h"
#include "client/detail/source_file.h"
#include "client/detail/upload_names.h"
#include "client/detail/upload_plan.h"
#include "client/detail/upload_sender.h"
#include "client/error.h"
#include "client/remote.h"
#include "client/transfer.h"

namespace transmit::detail {

// One upload with all care: what lies at its target is kept until the new file is whole, what an
// earlier attempt stored is checked before it is gone on with, and a source that changes is sent
// anew. Goes on over broken connections.
class UploadConversation {
  public:
    // All but `source` must outlive the conversation.
    UploadConversation(Worker& worker, RemoteFolders& folders, const UploadNames& names,
                       UploadSender& sender, SourceFile source, const UploadJob& job);

    Result<TransferReport> run();

  private:
    using Content = std::shared_ptr<const FolderContent>;

    Result<TransferReport> attempt(Connection& connection);
    Result<TransferReport> attempt_in_folder(Connection& connection);
    Result<Content> look(Connection& connection);
    Result<void> upload_aside(Connection& connection, const FolderContent& content);
    Result<void> upload_to(Connection& connection, const RemotePath& place,
                           const FolderContent& content);
    Result<bool> straight_is_safe(Connection& connection, const FolderContent& content);
    Result<void> check_side(Connection& connection, const RemotePath& side,
                            const FolderContent& content);
    bool begins_with_nothing(const RemotePath& place, const FolderContent& content) const;
    Result<UploadStart> begin_ahead(Connection& connection, const RemotePath& place);
    Result<UploadStart> begin(Connection& connection, const RemotePath& place);
    Result<bool> stored_part_is_good(Connection& connection, const RemotePath& place,
                                     std::int64_t size);
    Result<void> discard_stored_part(Connection& connection, const RemotePath& place);
    Result<TransferReport> arrived(Connection& connection);
    Result<void> start_over(const Error& reason);
    void suspect();
    Result<void> disown(Result<void> outcome);
    Result<bool> same_content(Connection& connection);
    bool is_compared(const Entry* there) const;

    bool has_arrived(const FolderContent& content) const;
    bool is_forced() const { return run_.options().always || resend_; }
    RemotePath at(std::string path) const;

    Worker& worker_;
    const BatchRun& run_;
    RemoteFolders& folders_;
    const UploadNames& names_;
    UploadSender& sender_;
    SourceFile source_;
    RemotePath target_;
    std::string name_in_folder_;
    FileWatch watch_;
    bool looked_ = false;
    bool ahead_ = false;      // data was sent before the server had answered its prepare
    bool aside_ = false;      // the last attempt went to a side name
    bool owns_part_ = false;  // what is stored under the target's name is of this run
    bool evades_ = false;     // what is stored there may be somebody's file, and is left alone
    bool suspect_ = false;    // what is stored is of this program, and not to be gone on with
    bool resend_ = false;     // although the server has a file of this size and time
    bool is_whole_ = false;   // all was sent: what lies at the target is of this run
};

}  // namespace transmit::detail
