#include "client/batch.h"

#include <filesystem>

#include "client/download.h"
#include "client/upload.h"

namespace transmit {
namespace {

// True if the files that follow would fail likewise.
bool ends_all(const Error& error) {
    return error.kind == ErrorKind::cancelled || error.kind == ErrorKind::no_connection;
}

class BatchRun {
  public:
    BatchRun(const Server& server, TransferObserver& observer)
        : observer_(observer),
          server_(server.endpoint, server.limits, server.retry,
                  [this, limit = server.retry.time_limit](const Error& reason,
                                                          std::chrono::milliseconds pause) {
                      observer_.retrying(file_, reason, pause, limit);
                  }) {}

    // `move` moves one job: (RetryingConnection&, job, ProgressCallback) -> Result<TransferReport>.
    template <typename Jobs, typename Move>
    TransferSummary run(const Jobs& jobs, Move move) {
        for (file_ = 0; file_ < jobs.size() && !summary_.stopped; ++file_) {
            observer_.started(file_);
            note(move(server_, jobs[file_],
                      [this](const Progress& progress) { observer_.progressed(file_, progress); }));
        }
        return summary_;
    }

  private:
    void note(const Result<TransferReport>& outcome) {
        if (outcome) {
            ++(outcome->already_there ? summary_.already_there : summary_.done);
            summary_.moved += outcome->moved;
            observer_.done(file_, *outcome);
            return;
        }
        summary_.failed.push_back({file_, outcome.error()});
        if (ends_all(outcome.error())) {
            summary_.stopped = outcome.error();
        }
        observer_.failed(file_, outcome.error());
    }

    TransferObserver& observer_;
    std::size_t file_ = 0;
    RetryingConnection server_;
    TransferSummary summary_;
};

}  // namespace

TransferSummary upload_files(const Server& server, const UploadBatch& batch,
                             const TransferOptions& options, TransferObserver& observer) {
    return BatchRun(server, observer)
        .run(batch.files, [&](RetryingConnection& connection, const UploadJob& job,
                              const ProgressCallback& progress) {
            return upload_file(connection, {job.local_path, job.target, options.encrypted},
                               progress);
        });
}

TransferSummary download_files(const Server& server, const DownloadBatch& batch,
                               const TransferOptions& options, TransferObserver& observer) {
    for (const std::string& folder : batch.folders) {
        std::error_code error;
        std::filesystem::create_directories(folder, error);
    }
    return BatchRun(server, observer)
        .run(batch.files, [&](RetryingConnection& connection, const DownloadJob& job,
                              const ProgressCallback& progress) {
            return download_file(connection, {job.source, job.local_path, options.encrypted},
                                 progress);
        });
}

}  // namespace transmit
