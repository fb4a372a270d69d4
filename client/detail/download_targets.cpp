#include "client/detail/download_targets.h"

#include "client/detail/work_name.h"

namespace transmit::detail {
namespace {

std::string name_of(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string folder_of(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

LocalFolder::Place place_of(const DownloadJob& job, bool follow_links) {
    const std::string folder = folder_of(job.local_path);
    if (job.root.empty() || !folder.starts_with(job.root)) {
        return {folder, "", follow_links};
    }
    return {job.root, folder.substr(job.root.size()), follow_links};
}

}  // namespace

std::unordered_set<std::string> targets_like_work_files(const std::vector<DownloadJob>& jobs) {
    std::unordered_set<std::string> found;
    for (const DownloadJob& job : jobs) {
        const std::string name = name_of(job.local_path);
        if (is_work_name(name, part_ending) || is_work_name(name, info_ending)) {
            found.insert(job.local_path);
        }
    }
    return found;
}

Result<LocalTarget> DownloadTargets::make(const DownloadJob& job) {
    return open(job, true);
}

Result<LocalTarget> DownloadTargets::find(const DownloadJob& job) {
    return open(job, false);
}

Result<LocalTarget> DownloadTargets::open(const DownloadJob& job, bool makes) {
    LocalFolder::Place place = place_of(job, follow_links_);
    if (!folder_ || place != place_) {
        auto folder = makes ? LocalFolder::make(place) : LocalFolder::open(place);
        if (!folder) {
            return folder.error();
        }
        folder_ = std::make_shared<LocalFolder>(*std::move(folder));
        place_ = std::move(place);
    }
    return LocalTarget{folder_, name_of(job.local_path), job.local_path};
}

IsReserved DownloadTargets::reserved_beside(const LocalTarget& target) const {
    return [this, folder = folder_of(target.path)](const std::string& name) {
        return !reserved_.empty() && reserved_.contains(folder + name);
    };
}

}  // namespace transmit::detail
