#pragma once

#include "client/detail/file_watch.h"
#include "client/error.h"

namespace transmit::detail {

// A download that goes to the job's sink, piece by piece, over as many connections as it takes.
class SinkDownload {
  public:
    // Both must outlive the download.
    SinkDownload(Worker& worker, const DownloadJob& job)
        : worker_(worker), job_(job), watch_(worker) {}

    Result<TransferReport> run();

  private:
    Result<TransferReport> attempt(Connection& connection);
    Result<void> fetch(Connection& connection);

    Worker& worker_;
    const DownloadJob& job_;
    FileWatch watch_;
    FileStamp source_;
    std::int64_t position_ = 0;
};

}  // namespace transmit::detail
