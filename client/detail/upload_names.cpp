#include "client/detail/upload_names.h"

#include <array>

#include "client/detail/work_name.h"

namespace transmit::detail {
namespace {

// What a finish adds to the name of data that is shorter or longer than announced.
constexpr std::size_t longest_name = 255;  // NAME_MAX
constexpr std::array<std::string_view, 2> set_aside_endings{".incomplete", ".overflow"};

}  // namespace

UploadNames::UploadNames(const std::vector<UploadJob>& jobs, std::string suffix)
    : suffix_(std::move(suffix)) {
    for (const UploadJob& job : jobs) {
        const std::string& path = job.target.path;
        if ((!suffix_.empty() && path.ends_with(suffix_)) || path.ends_with(set_aside_endings[0]) ||
            path.ends_with(set_aside_endings[1]) || is_work_name(split(path).name, side_ending)) {
            special_.insert(path);
        }
    }
}

bool UploadNames::endangers(std::string_view target) const {
    return split(target).name.size() + suffix_.size() > longest_name ||
           (!suffix_.empty() && !special_.empty() &&
            special_.contains(std::string(target) + suffix_));
}

bool UploadNames::endangers(std::string_view target, const FolderContent& folder) const {
    const std::string name(split(target).name);
    bool found = endangers(target) || (!suffix_.empty() && folder.find(name + suffix_));
    for (const std::string_view ending : set_aside_endings) {
        found = found || folder.find(name + std::string(ending)) ||
                (!special_.empty() && special_.contains(std::string(target).append(ending)));
    }
    return found;
}

std::string UploadNames::side_path(std::string_view target) const {
    const auto [folder, name] = split(target);
    int round = 0;
    std::string path;
    do {
        path = std::string(folder) + work_name(name, side_ending, round);
    } while (special_.contains(path) && ++round < most_work_names);
    return path;
}

}  // namespace transmit::detail
