#include "client/cli/entry_output.h"

#include <cstdio>

#include "client/cli/text.h"

namespace transmit::cli {

Json entry_object(const Entry& entry, const std::string& path, bool unfinished) {
    Json object{{"path", path}, {"type", entry.is_folder ? "folder" : "file"}};
    if (!entry.is_folder) {
        object["size"] = entry.size;
        object["time"] = entry.time;
    }
    if (unfinished) {
        object["unfinished"] = true;
    }
    return object;
}

void print_entry(const Entry& entry, const std::string& name, bool details, bool unfinished) {
    const std::string text = shown(name) + (entry.is_folder && !name.ends_with('/') ? "/" : "") +
                             (unfinished ? "  (unfinished upload)" : "");
    if (!details) {
        std::printf("%s\n", text.c_str());
    } else if (entry.is_folder) {
        std::printf("%20s  %19s  %s\n", "-", "-", text.c_str());
    } else {
        std::printf("%20lld  %19s  %s\n", static_cast<long long>(entry.size),
                    shown_time(entry.time).c_str(), text.c_str());
    }
}

}  // namespace transmit::cli
