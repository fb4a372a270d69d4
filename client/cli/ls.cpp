#include <algorithm>
#include <cstdio>

#include "client/cli/commands.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/listing.h"

namespace transmit::cli {
namespace {

// A listing says nothing of a file itself; a download's prepare does.
Result<std::vector<Entry>> file_as_listing(Connection& connection, const RemotePath& path) {
    const auto stamp = connection.download_file_prepare(path, false);
    if (!stamp) {
        return stamp.error();
    }
    if (auto finished = connection.download_file_finish(); !finished) {
        return finished.error();
    }
    return std::vector{Entry{false, path.path, stamp->size, stamp->time}};
}

Result<std::vector<Entry>> fetch_entries(const Common& common, const RemotePath& path) {
    auto connection = connect(common);
    if (!connection) {
        return connection.error();
    }
    const auto content = connection->get_path_content(path);
    if (!content) {
        return content.error();
    }
    return content->is_folder ? parse_listing(content->document)
                              : file_as_listing(*connection, path);
}

void print(const Entry& entry, bool details) {
    const std::string name = shown(entry.name) + (entry.is_folder ? "/" : "");
    if (!details) {
        std::printf("%s\n", name.c_str());
    } else if (entry.is_folder) {
        std::printf("%20s  %19s  %s\n", "-", "-", name.c_str());
    } else {
        std::printf("%20lld  %19s  %s\n", static_cast<long long>(entry.size),
                    shown_time(entry.time).c_str(), name.c_str());
    }
}

}  // namespace

ExitCode ls(const Common& common, const std::string& path, bool details) {
    auto entries = fetch_entries(common, common.at(path));
    if (!entries) {
        complain(path, entries.error());
        return exit_code(entries.error(), ExitCode::folder_not_found);
    }
    std::sort(entries->begin(), entries->end(),
              [](const Entry& left, const Entry& right) { return left.name < right.name; });
    for (const Entry& entry : *entries) {
        print(entry, details);
    }
    return ExitCode::done;
}

}  // namespace transmit::cli
