#include <algorithm>

#include "client/batch.h"
#include "client/detail/small_uploads.h"
#include "client/detail/upload_conversation.h"
#include "client/detail/upload_names.h"

namespace transmit {
namespace {

using detail::BatchRun;
using detail::RemoteFolders;
using detail::UploadNames;
using detail::Worker;

constexpr std::size_t longest_path = 65'535;
// A folder takes one new name at a time: with more than this on small files they wait for each
// other there.
constexpr int workers_for_small_files = 2;

// Small files that nothing is known or asked about which needs care.
bool is_small(const UploadJob& job, const TransferOptions& options) {
    return job.size && *job.size <= detail::UploadSender::small_size && !options.verify &&
           !options.checksum && !options.always && !options.dry_run && !job.source &&
           job.target.path.size() <= longest_path && detail::is_told_by_listings(job.target.path);
}

int workers_for(const std::vector<UploadJob>& jobs, const TransferOptions& options) {
    const bool are_small =
        std::ranges::all_of(jobs, [&](const UploadJob& job) { return is_small(job, options); });
    return are_small ? workers_for_small_files : BatchRun::usual_workers;
}

Result<TransferReport> upload(Worker& worker, RemoteFolders& folders, const UploadNames& names,
                              detail::UploadSender& sender, const UploadJob& job) {
    auto source = job.source ? detail::SourceFile::spool(
                                   job.source, [&worker] { return worker.run.cancelled(); })
                             : detail::SourceFile::open(job.local_path);
    if (!source) {
        return source.error();
    }
    return detail::UploadConversation(worker, folders, names, sender, *std::move(source), job)
        .run();
}

void work(Worker& worker, RemoteFolders& folders, const UploadNames& names,
          const std::vector<UploadJob>& jobs) {
    detail::UploadSender sender(worker.run);
    detail::SmallUploads small_uploads(worker, folders, names, sender, jobs);
    detail::move_files(
        worker, [&](std::size_t file) { return is_small(jobs[file], worker.run.options()); },
        small_uploads,
        [&](std::size_t file) { return upload(worker, folders, names, sender, jobs[file]); });
}

void make_folders(Worker& worker, RemoteFolders& folders, const std::vector<RemotePath>& wanted) {
    for (const RemotePath& folder : wanted) {
        const auto made = worker.server.run([&](Connection& connection) -> Result<void> {
            const auto content = folders.parent(connection, folder);
            if (!content) {
                return content.error();
            }
            const Entry* const there = (*content)->find(detail::split(folder.path).name);
            return there && there->is_folder ? Result<void>() : connection.create_directory(folder);
        });
        if (!made) {
            worker.run.refused({folder.path, made.error()});
        }
    }
}

}  // namespace

TransferSummary upload_files(const Server& server, const UploadBatch& batch,
                             const TransferOptions& options, TransferObserver& observer) {
    BatchRun run(server, batch.files.size(), options, observer);
    RemoteFolders folders;
    const UploadNames names(batch.files, options.server_suffix);
    for (const Refusal& refusal : batch.refused) {
        run.refused(refusal);
    }
    return run.run(
        [&](Worker& worker) {
            if (!options.dry_run) {
                make_folders(worker, folders, batch.folders);
            }
        },
        [&](Worker& worker) { work(worker, folders, names, batch.files); },
        workers_for(batch.files, options));
}

}  // namespace transmit
