#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "kestin_base/detail/file_mode.h"
#include "kestin_base/file_system.h"

namespace Kestin::Base {
namespace {

using Stream = std::unique_ptr<DIR, decltype([](DIR* stream) { ::closedir(stream); })>;

// Removes a tree with one open directory at a time, so neither its depth nor the length of its
// paths has a bound. Everything is done relative to the open directory: nothing that is renamed or
// replaced by a link meanwhile leads out of the tree.
class TreeRemover {
  public:
    // Empties the directory `path`, which is no link.
    void empty(const char* path) {
        if (!descend(AT_FDCWD, path)) {
            return;
        }
        while (!levels_.empty()) {
            std::vector<std::string>& folders = levels_.back().folders;
            if (folders.empty()) {
                if (!ascend()) {
                    return;
                }
            } else if (!descend(::dirfd(open_.get()), folders.back().c_str())) {
                note_fault();
                folders.pop_back();
            }
        }
    }

    // Why the first of what stayed couldn't be removed, as an errno; 0: all went.
    int first_fault() const { return first_fault_; }

  private:
    // A directory on the way down: what it is, and its folders that are still to be removed, the
    // last of them being the one that is entered.
    struct Level {
        dev_t device;
        ino_t inode;
        std::vector<std::string> folders;
    };

    bool descend(int above, const char* name) {
        Stream stream = open_folder(above, name);
        struct stat facts {};
        if (stream == nullptr || ::fstat(::dirfd(stream.get()), &facts) != 0) {
            return false;
        }
        open_ = std::move(stream);
        levels_.push_back({facts.st_dev, facts.st_ino, remove_files()});
        return true;
    }

    // Leaves an emptied directory for the one above and removes it there. False at the top, or if
    // the directory was moved meanwhile, so that another one is above it now.
    bool ascend() {
        levels_.pop_back();
        if (levels_.empty()) {
            return false;
        }
        Stream above = open_folder(::dirfd(open_.get()), "..");
        struct stat facts {};
        Level& level = levels_.back();
        if (above == nullptr || ::fstat(::dirfd(above.get()), &facts) != 0 ||
            facts.st_dev != level.device || facts.st_ino != level.inode) {
            return false;
        }
        open_ = std::move(above);
        ::unlinkat(::dirfd(open_.get()), level.folders.back().c_str(), AT_REMOVEDIR);
        level.folders.pop_back();
        return true;
    }

    // Opens a folder, after its owner got every permission on it.
    static Stream open_folder(int above, const char* name) {
        struct stat facts {};
        if (::fstatat(above, name, &facts, AT_SYMLINK_NOFOLLOW) == 0) {
            detail::grant_owner(above, name, facts.st_mode, S_IRWXU);
        }
        const int folder = ::openat(above, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        Stream stream(folder < 0 ? nullptr : ::fdopendir(folder));
        if (stream == nullptr && folder >= 0) {
            ::close(folder);
        }
        return stream;
    }

    // Removes all of the open directory but its folders, and tells these. What doesn't go is taken
    // for a folder: entering it will fail and leave it.
    std::vector<std::string> remove_files() {
        std::vector<std::string> folders;
        while (const dirent* entry = ::readdir(open_.get())) {
            const char* name = static_cast<const char*>(entry->d_name);
            const std::string_view text = name;
            if (text == "." || text == "..") {
                continue;
            }
            if (entry->d_type == DT_DIR) {
                folders.emplace_back(name);
            } else if (::unlinkat(::dirfd(open_.get()), name, 0) != 0) {
                if (errno != EISDIR) {
                    note_fault();
                }
                folders.emplace_back(name);
            }
        }
        return folders;
    }

    void note_fault() {
        if (first_fault_ == 0) {
            first_fault_ = errno;
        }
    }

    Stream open_;
    std::vector<Level> levels_;
    int first_fault_ = 0;
};

}  // namespace

void kestin_remove_directory_recursive(const std::string& path) {
    // A separator at the end would lead through a link.
    const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
    struct stat facts {};
    if (::lstat(name.c_str(), &facts) != 0) {
        return;
    }
    if (S_ISLNK(facts.st_mode)) {
        ::unlink(name.c_str());
        return;
    }
    TreeRemover remover;
    remover.empty(name.c_str());
    if (::rmdir(name.c_str()) != 0 && remover.first_fault() != 0) {
        errno = remover.first_fault();
    }
}

}  // namespace Kestin::Base
