#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "client/connection.h"
#include "client/error.h"
#include "client/listing.h"
#include "client/remote.h"

namespace transmit::detail {

// The folder and the name of a path on the server; the folder keeps its separator.
struct SplitPath {
    std::string_view folder;
    std::string_view name;
};
SplitPath split(std::string_view path);

// False of names that a listing can't tell as they are: what XML can't hold stands there as U+FFFD.
bool is_told_by_listings(std::string_view name);

// What a folder on the server held when it was listed, sorted by name.
class FolderContent {
  public:
    explicit FolderContent(std::vector<Entry> entries);

    void add(Entry entry);

    const Entry* find(std::string_view name) const;
    // The files of this size and time whose names are `name` and more, beginning with no letter and
    // no digit: among them is an upload's temporary file, whatever suffix the server gives it.
    std::vector<Entry> longer(std::string_view name, const FileStamp& stamp) const;
    // Whether there are any of at most this size, whatever their time: a temporary file that is
    // being written has not yet that of its source.
    bool has_longer(std::string_view name, std::int64_t size) const;

  private:
    template <typename Visit>
    void visit_longer(std::string_view name, Visit visit) const;

    std::vector<Entry> entries_;
};

// The folder that a path lies in, asked of the server now. One that doesn't exist is empty.
Result<FolderContent> list_parent(Connection& connection, const RemotePath& path);

// Folders listed once for all files of a batch. For several threads at once.
class RemoteFolders {
  public:
    Result<std::shared_ptr<const FolderContent>> parent(Connection& connection,
                                                        const RemotePath& path);
    // Whether `parent` needs no question to the server. Waits for one that is under way.
    bool knows(const RemotePath& path);

  private:
    struct Listed {
        std::mutex lock;
        std::shared_ptr<const FolderContent> content;
    };
    using Key = std::tuple<std::uint32_t, std::uint32_t, std::string>;

    std::shared_ptr<Listed> place_of(const RemotePath& path);

    std::mutex lock_;
    std::map<Key, std::shared_ptr<Listed>> folders_;
};

}  // namespace transmit::detail
