#include "client/detail/remote_folders.h"

#include <algorithm>
#include <cctype>

#include "client/detail/utf8.h"
#include "src/message/status.h"

namespace transmit::detail {

SplitPath split(std::string_view path) {
    const auto separator = path.find_last_of("/\\");
    const std::size_t start = separator == std::string_view::npos ? 0 : separator + 1;
    return {path.substr(0, start), path.substr(start)};
}

bool is_told_by_listings(std::string_view name) {
    return std::ranges::none_of(name, [](char byte) { return byte >= 0 && byte < ' '; }) &&
           is_utf8(name);
}

FolderContent::FolderContent(std::vector<Entry> entries) : entries_(std::move(entries)) {
    std::ranges::sort(entries_, {}, &Entry::name);
}

void FolderContent::add(Entry entry) {
    const auto place = std::ranges::lower_bound(entries_, entry.name, {}, &Entry::name);
    entries_.insert(place, std::move(entry));
}

const Entry* FolderContent::find(std::string_view name) const {
    const auto place = std::ranges::lower_bound(entries_, name, {}, &Entry::name);
    return place != entries_.end() && place->name == name ? &*place : nullptr;
}

template <typename Visit>
void FolderContent::visit_longer(std::string_view name, Visit visit) const {
    auto place = std::ranges::upper_bound(entries_, name, {}, &Entry::name);
    for (; place != entries_.end() && place->name.starts_with(name); ++place) {
        if (!place->is_folder &&
            !std::isalnum(static_cast<unsigned char>(place->name[name.size()]))) {
            visit(*place);
        }
    }
}

std::vector<Entry> FolderContent::longer(std::string_view name, const FileStamp& stamp) const {
    std::vector<Entry> found;
    visit_longer(name, [&](const Entry& entry) {
        if (FileStamp{entry.size, entry.time} == stamp) {
            found.push_back(entry);
        }
    });
    return found;
}

bool FolderContent::has_longer(std::string_view name, std::int64_t size) const {
    bool found = false;
    visit_longer(name, [&](const Entry& entry) { found = found || entry.size <= size; });
    return found;
}

Result<FolderContent> list_parent(Connection& connection, const RemotePath& path) {
    const RemotePath folder{path.storage_id, path.user_id, std::string(split(path.path).folder)};
    const auto content = connection.get_path_content(folder);
    if (!content && content.error().status == message::status_access_failed) {
        return FolderContent({});
    }
    if (!content) {
        return content.error();
    }
    if (!content->is_folder) {
        return FolderContent({});
    }
    auto entries = parse_listing(content->document);
    if (!entries) {
        return entries.error();
    }
    return FolderContent(*std::move(entries));
}

// Who comes first lists the folder, and the others wait for it.
Result<std::shared_ptr<const FolderContent>> RemoteFolders::parent(Connection& connection,
                                                                   const RemotePath& path) {
    const auto listed = place_of(path);
    const std::lock_guard guard(listed->lock);
    if (!listed->content) {
        auto content = list_parent(connection, path);
        if (!content) {
            return content.error();
        }
        listed->content = std::make_shared<FolderContent>(*std::move(content));
    }
    return listed->content;
}

bool RemoteFolders::knows(const RemotePath& path) {
    const auto listed = place_of(path);
    const std::lock_guard guard(listed->lock);
    return listed->content != nullptr;
}

std::shared_ptr<RemoteFolders::Listed> RemoteFolders::place_of(const RemotePath& path) {
    const std::lock_guard guard(lock_);
    auto& place = folders_[{path.storage_id, path.user_id, std::string(split(path.path).folder)}];
    if (!place) {
        place = std::make_shared<Listed>();
    }
    return place;
}

}  // namespace transmit::detail
