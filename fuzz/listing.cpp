#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "client/listing.h"
#include "fuzz/fuzz_target.h"
#include "kestin_base/directory.h"
#include "src/norvane_transmit_node/folder_listing.h"
#include "tests/support/temporary_folder.h"

namespace {

bool is_ascii(const std::string& name) {
    return std::all_of(name.begin(), name.end(),
                       [](char byte) { return byte >= ' ' && byte < 127; });
}

// Makes an empty file, or a folder, of that name; false where the system has no such name.
bool make_entry(const std::string& path, bool folder) {
    if (folder) {
        return ::mkdir(path.c_str(), 0700) == 0;
    }
    const int descriptor = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    ::close(descriptor);
    return descriptor >= 0;
}

}  // namespace

// The names of a folder, each ended by a slash for the next: whatever bytes they hold, a client
// reads as many entries as there are, and plain names as they are.
void run(std::string_view input) {
    static const support::TemporaryFolder folder;
    std::set<std::string> plain;
    std::size_t count = 0;
    while (!input.empty()) {
        const std::string name(input.substr(0, input.find_first_of(std::string_view("/\0", 2))));
        input.remove_prefix(std::min(name.size() + 1, input.size()));
        if (make_entry(folder.path() + name, count % 2 == 1)) {
            ++count;
            if (is_ascii(name)) {
                plain.insert(name);
            }
        }
    }
    Kestin::Base::Directory directory;
    std::string document;
    require(
        directory.open(folder.path().c_str()) && make_download_folder_content(directory, document),
        "a folder is listed");
    auto entries = transmit::parse_listing(document);
    require(static_cast<bool>(entries), "a client reads the listing");
    require(entries->size() == count, "every entry is listed");
    for (const transmit::Entry& entry : *entries) {
        require(!entry.name.empty() && entry.size == 0, "an entry is what it is");
        plain.erase(entry.name);
    }
    require(plain.empty(), "plain names are read back");
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        std::filesystem::remove(entry);
    }
}
