#include <algorithm>
#include <cstdio>
#include <functional>

#include "client/cli/commands.h"
#include "client/cli/entry_output.h"
#include "client/cli/names.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/cli/text.h"
#include "client/cli/unfinished_upload.h"
#include "client/remote_tree.h"
#include "src/message/status.h"

namespace transmit::cli {
namespace {

bool is_file(const Error& error) {
    return error.status == message::status_path_is_file;
}

class Listing {
  public:
    Listing(const Common& common, const ListCommand& command)
        : common_(common), command_(command) {}

    Result<void> operator()(RetryingConnection& server, const RemotePath& path) {
        auto listed = command_.recursive ? walk(server, path) : list(server, path);
        return listed || !is_file(listed.error()) ? listed : list_file(server, path);
    }

    // False if a folder below those that were named couldn't be listed.
    bool complete() const { return complete_; }

  private:
    Result<void> list(RetryingConnection& server, const RemotePath& folder) {
        const auto entries = list_folder(server, folder);
        if (!entries) {
            return entries.error();
        }
        if (command_.names.size() > 1 && !common_.json) {
            std::printf("%s%s:\n", first_ ? "" : "\n", shown(folder.path).c_str());
        }
        first_ = false;
        for (const Entry& entry : *entries) {
            print(entry, joined(folder.path, entry.name), entry.name,
                  is_unfinished(entry, *entries));
        }
        return {};
    }

    // Whole paths, which other commands take as they are.
    Result<void> walk(RetryingConnection& server, const RemotePath& folder) {
        return walk_remote(
            server, folder,
            [&](const std::string& below, const Result<std::vector<Entry>>& entries) {
                print_folder(joined(folder.path, below), entries);
            });
    }

    void print_folder(const std::string& path, const Result<std::vector<Entry>>& entries) {
        if (!entries) {
            report_failure(common_, path, entries.error(), ExitCode::folder_not_found);
            complete_ = false;
            return;
        }
        for (const Entry& entry : *entries) {
            const std::string whole = joined(path, entry.name);
            print(entry, whole, whole, is_unfinished(entry, *entries));
        }
    }

    Result<void> list_file(RetryingConnection& server, const RemotePath& path) {
        const auto entry = stat_path(server, path);
        if (!entry) {
            return entry.error();
        }
        print(*entry, path.path, path.path, false);
        return {};
    }

    bool is_unfinished(const Entry& entry, const std::vector<Entry>& sorted) const {
        return !entry.is_folder &&
               is_unfinished_upload(
                   entry.name, command_.server_suffix, [&sorted](const std::string& name) {
                       return std::ranges::binary_search(sorted, name, {}, &Entry::name);
                   });
    }

    void print(const Entry& entry, const std::string& path, const std::string& name,
               bool unfinished) const {
        if (common_.json) {
            print_line(entry_object(entry, path, unfinished));
        } else {
            print_entry(entry, name, command_.details, unfinished);
        }
    }

    const Common& common_;
    const ListCommand& command_;
    bool first_ = true;
    bool complete_ = true;
};

}  // namespace

ExitCode ls(const Common& common, const ListCommand& command) {
    const std::vector<std::string> root{"/"};
    Listing listing(common, command);
    const ExitCode code = for_each_target(common, command.names.empty() ? root : command.names,
                                          std::ref(listing), ExitCode::folder_not_found);
    return code == ExitCode::done && !listing.complete() ? ExitCode::some_failed : code;
}

}  // namespace transmit::cli
