#include <algorithm>
#include <filesystem>

#include "client/batch.h"
#include "client/detail/local_error.h"
#include "client/remote_tree.h"

namespace transmit {
namespace {

namespace fs = std::filesystem;

class UploadTree {
  public:
    UploadTree(const RemotePath& target, const Cancelled& cancelled)
        : target_(target), cancelled_(cancelled) {}

    Result<void> add_folder(const std::string& local, const std::string& remote) {
        std::error_code error;
        fs::directory_iterator entries(local, error);
        if (error) {
            return detail::local_error(local, "listed", error.value());
        }
        if (entries == fs::directory_iterator()) {
            batch_.folders.push_back(at(remote));
        }
        for (; entries != fs::directory_iterator(); entries.increment(error)) {
            if (is_cancelled()) {
                return Error{ErrorKind::cancelled, 0, "cancelled"};
            }
            add(*entries, remote);
        }
        if (error) {
            return detail::local_error(local, "listed", error.value());
        }
        return {};
    }

    bool is_cancelled() const { return cancelled_ && cancelled_(); }

    // In the order of names, whatever the file system's is.
    UploadBatch take() {
        std::ranges::sort(batch_.files, {}, &UploadJob::local_path);
        return std::move(batch_);
    }

  private:
    void add(const fs::directory_entry& entry, const std::string& folder) {
        const std::string local = entry.path().string();
        const std::string name = entry.path().filename().string();
        const std::string remote =
            folder.empty() || folder.ends_with('/') ? folder + name : folder + '/' + name;
        std::error_code error;
        if (!is_plain_name(name)) {
            refuse(local, "its name holds a backslash, which the server takes for a separator");
        } else if (entry.is_directory(error) && entry.is_symlink(error)) {
            refuse(local, "it is a link to a folder, which may lead in a circle");
        } else if (entry.is_directory(error)) {
            if (auto added = add_folder(local, remote); !added) {
                batch_.refused.push_back({local, added.error()});
            }
        } else if (entry.is_regular_file(error)) {
            const auto size = static_cast<std::int64_t>(entry.file_size(error));
            batch_.files.push_back(
                {local, at(remote), {}, {}, error ? std::nullopt : std::optional(size)});
        } else {
            refuse(local, "it is neither a file nor a folder");
        }
    }

    void refuse(const std::string& path, const std::string& why) {
        batch_.refused.push_back({path, {ErrorKind::invalid_request, 0, why}});
    }

    RemotePath at(const std::string& path) const {
        return {target_.storage_id, target_.user_id, path};
    }

    const RemotePath& target_;
    const Cancelled& cancelled_;
    UploadBatch batch_;
};

}  // namespace

Result<UploadBatch> upload_tree(const std::string& local_folder, const RemotePath& target,
                                const Cancelled& cancelled) {
    UploadTree tree(target, cancelled);
    if (auto added = tree.add_folder(local_folder, target.path); !added) {
        return added.error();
    }
    if (tree.is_cancelled()) {
        return Error{ErrorKind::cancelled, 0, "cancelled"};
    }
    return tree.take();
}

}  // namespace transmit
