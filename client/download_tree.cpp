#include "client/batch.h"
#include "client/remote_tree.h"

namespace transmit {
namespace {

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() || name.empty() || folder.ends_with('/') ? folder + name
                                                                   : folder + '/' + name;
}

class DownloadTree {
  public:
    DownloadTree(const RemotePath& source, const std::string& local_folder)
        : source_(source), local_folder_(local_folder.empty() ? "." : local_folder) {}

    void add_folder(const std::string& path, const Result<std::vector<Entry>>& entries) {
        const std::string remote = joined(source_.path, path);
        const std::string local = joined(local_folder_, path);
        if (!entries) {
            batch_.refused.push_back({remote, listed_path_error(remote, entries.error())});
            return;
        }
        batch_.folders.push_back({local_folder_, path});
        for (const Entry& entry : *entries) {
            if (!is_plain_name(entry.name)) {
                refuse(joined(remote, entry.name));
            } else if (!entry.is_folder) {
                batch_.files.push_back(
                    {{source_.storage_id, source_.user_id, joined(remote, entry.name)},
                     joined(local, entry.name),
                     {},
                     FileStamp{entry.size, entry.time},
                     local_folder_});
            }
        }
    }

    DownloadBatch take() { return std::move(batch_); }

  private:
    void refuse(const std::string& path) {
        batch_.refused.push_back(
            {path,
             {ErrorKind::invalid_request, 0, "its name could lead out of the target folder"}});
    }

    const RemotePath& source_;
    const std::string local_folder_;
    DownloadBatch batch_;
};

}  // namespace

Result<DownloadBatch> download_tree(RetryingConnection& server, const RemotePath& source,
                                    const std::string& local_folder) {
    DownloadTree tree(source, local_folder);
    const auto walked = walk_remote(
        server, source, [&](const std::string& path, const Result<std::vector<Entry>>& entries) {
            tree.add_folder(path, entries);
        });
    if (!walked) {
        return walked.error();
    }
    return tree.take();
}

}  // namespace transmit
