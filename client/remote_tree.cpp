#include "client/remote_tree.h"

#include <algorithm>
#include <deque>

#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit {
namespace {

// What a walk may cost in memory: a server could make up a tree without an end. Room for some
// three million files.
constexpr std::size_t most_memory = 1UL << 30;
// Of an entry, beside its path on the server and here.
constexpr std::size_t entry_memory = 256;

std::size_t memory_of(const std::string& folder, const std::vector<Entry>& entries) {
    std::size_t sum = 0;
    for (const Entry& entry : entries) {
        sum += entry_memory + 2 * (folder.size() + entry.name.size());
    }
    return sum;
}

// Failures of one folder, which say nothing about the others.
bool is_of_one_folder(const Error& error) {
    return error.kind == ErrorKind::refused || error.kind == ErrorKind::invalid_request;
}

std::string last_component(std::string_view path) {
    const auto end = path.find_last_not_of("/\\");
    if (end == std::string_view::npos) {
        return {};
    }
    path = path.substr(0, end + 1);
    return std::string(path.substr(path.find_last_of("/\\") + 1));
}

RemotePath below(const RemotePath& folder, const std::string& relative) {
    RemotePath path = folder;
    if (!path.path.empty() && !path.path.ends_with('/') && !relative.empty()) {
        path.path += '/';
    }
    path.path += relative;
    return path;
}

Result<std::vector<Entry>> sorted_listing(std::string_view document) {
    auto entries = parse_listing(document);
    if (entries) {
        std::ranges::sort(*entries, {}, &Entry::name);
    }
    return entries;
}

}  // namespace

// A listing says nothing of a file itself; a download's prepare does.
Result<Entry> stat_path(RetryingConnection& server, const RemotePath& path) {
    return server.run([&](Connection& connection) -> Result<Entry> {
        const auto stamp = connection.download_file_prepare(path, false);
        if (!stamp && stamp.error().status == message::status_path_is_directory) {
            return Entry{true, last_component(path.path)};
        }
        if (!stamp) {
            return stamp.error();
        }
        if (const auto finished = connection.download_file_finish(); !finished) {
            return finished.error();
        }
        return Entry{false, last_component(path.path), stamp->size, stamp->time};
    });
}

Result<std::vector<Entry>> list_folder(RetryingConnection& server, const RemotePath& folder) {
    return server.run([&](Connection& connection) -> Result<std::vector<Entry>> {
        const auto content = connection.get_path_content(folder);
        if (!content) {
            return content.error();
        }
        return content->is_folder ? sorted_listing(content->document)
                                  : refusal(message::status_path_is_file);
    });
}

Result<void> walk_remote(RetryingConnection& server, const RemotePath& folder,
                         const FolderVisitor& visit) {
    std::deque<std::string> waiting{""};
    std::size_t memory = 0;
    while (!waiting.empty()) {
        const std::string path = std::move(waiting.front());
        waiting.pop_front();
        const auto entries = list_folder(server, below(folder, path));
        if (!entries && (path.empty() || !is_of_one_folder(entries.error()))) {
            return entries.error();
        }
        memory += entries ? memory_of(path, *entries) : 0;
        if (memory > most_memory) {
            return Error{ErrorKind::bad_answer, 0,
                         "the tree is too large for one command; it got as far as the folder " +
                             below(folder, path).path};
        }
        visit(path, entries);
        if (!entries) {
            continue;
        }
        std::for_each(entries->rbegin(), entries->rend(), [&](const Entry& entry) {
            if (entry.is_folder && is_plain_name(entry.name)) {
                waiting.push_front(path.empty() ? entry.name : path + '/' + entry.name);
            }
        });
    }
    return {};
}

bool is_plain_name(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

Error listed_path_error(const std::string& path, Error error) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    if (error.status != message::status_access_failed ||
        path.find(replacement) == std::string::npos) {
        return error;
    }
    return {ErrorKind::invalid_request, 0,
            "listings can't tell this name, which holds bytes that are no text; fetch it by its "
            "own name"};
}

}  // namespace transmit
