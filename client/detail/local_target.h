#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "client/detail/file_descriptor.h"
#include "client/error.h"
#include "client/remote.h"

namespace transmit::detail {

// A folder of this machine, held open: what is done in it stays in it, whatever others make of its
// path meanwhile. The path may be longer than the system takes at once.
class LocalFolder {
  public:
    struct Place {
        std::string root;  // links in it are followed
        std::string
            below;  // relative to `root`; a link in it is an error unless it may be followed
        bool follow_links = false;

        bool operator==(const Place&) const = default;
    };

    // Makes what is missing.
    static Result<LocalFolder> make(const Place& place);
    // Makes nothing: missing_file if it isn't there.
    static Result<LocalFolder> open(const Place& place);

    int descriptor() const { return descriptor_.get(); }

  private:
    explicit LocalFolder(FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

    static Result<LocalFolder> enter(const Place& place, bool makes);

    FileDescriptor descriptor_;
};

// Where a downloaded file goes: a name in an open folder.
struct LocalTarget {
    std::shared_ptr<const LocalFolder> folder;
    std::string name;
    std::string path;  // for messages, and to tell targets apart
};

// The size and time of the regular file at the target; nothing of anything else.
std::optional<FileStamp> stamp_of(const LocalTarget& target);

// SHA-256 of the first `size` bytes of the regular file at the target; file_changed if there are
// fewer.
Result<std::string> sha256_of(const LocalTarget& target, std::int64_t size,
                              const std::function<bool()>& cancelled);

// An error if something lies at the target that no download replaces: all but regular files.
Result<void> can_be_replaced(const LocalTarget& target);

}  // namespace transmit::detail
