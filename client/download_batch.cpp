#include <filesystem>

#include "client/batch.h"
#include "client/detail/download_conversation.h"
#include "client/detail/download_targets.h"
#include "client/detail/sink_download.h"
#include "client/detail/small_downloads.h"
#include "client/remote_tree.h"

namespace transmit {
namespace {

using detail::BatchRun;
using detail::DownloadTargets;
using detail::LocalFolder;
using detail::SmallDownloads;
using detail::Worker;

// Small files of which a listing told all, and nothing is asked that needs care.
bool is_small(const DownloadJob& job, const TransferOptions& options) {
    return job.stamp && !job.sink && job.stamp->size <= SmallDownloads::small_size &&
           !options.verify && !options.checksum && !options.always && !options.dry_run;
}

Result<TransferReport> download(Worker& worker, DownloadTargets& targets, const DownloadJob& job,
                                int streams) {
    auto outcome = job.sink ? detail::SinkDownload(worker, job).run()
                            : detail::DownloadConversation(worker, targets, job, streams).run();
    return outcome || !job.stamp ? outcome : listed_path_error(job.source.path, outcome.error());
}

void work(Worker& worker, const std::vector<DownloadJob>& jobs,
          const std::unordered_set<std::string>& reserved) {
    const auto& options = worker.run.options();
    const int streams = jobs.size() == 1 ? std::max(options.streams, 1) : 1;
    DownloadTargets targets(reserved, options.follow_links);
    SmallDownloads small_downloads(worker, targets, jobs);
    detail::move_files(
        worker, [&](std::size_t file) { return is_small(jobs[file], options); }, small_downloads,
        [&](std::size_t file) { return download(worker, targets, jobs[file], streams); });
}

void make_folders(BatchRun& run, const std::vector<DownloadFolder>& folders) {
    const bool follow_links = run.options().follow_links;
    for (const auto& [root, below] : folders) {
        if (const auto made = LocalFolder::make({root, below, follow_links}); !made) {
            run.refused({std::filesystem::path(root) / below, made.error()});
        }
    }
}

}  // namespace

TransferSummary download_files(const Server& server, const DownloadBatch& batch,
                               const TransferOptions& options, TransferObserver& observer) {
    BatchRun run(server, batch.files.size(), options, observer);
    const auto reserved = detail::targets_like_work_files(batch.files);
    for (const Refusal& refusal : batch.refused) {
        run.refused(refusal);
    }
    return run.run(
        [&](Worker&) {
            if (!options.dry_run) {
                make_folders(run, batch.folders);
            }
        },
        [&](Worker& worker) { work(worker, batch.files, reserved); });
}

}  // namespace transmit
