#include "src/norvane_transmit_service/path_mapping.h"

#include <algorithm>
#include <filesystem>

#include "fuzz/fuzz_target.h"
#include "fuzz/served_storage.h"

namespace {

// The standard library's opinion on the same path, climbing out made impossible by its root.
std::string normal_form(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    std::string normal = std::filesystem::path("/" + path).lexically_normal();
    normal.erase(0, normal.find_first_not_of('/'));
    normal.erase(normal.find_last_not_of('/') + 1);
    return '/' + normal;
}

void check_clean_path(const std::string& path) {
    const std::string cleaned = clean_path(path);
    require(cleaned.starts_with('/'), "a cleaned path begins with its separator");
    require(normal_form(cleaned) == normal_form(path), "a cleaned path means the same");
    require(("/" + cleaned + "/").find("/../") == std::string::npos, "nothing climbs");
    require(
        cleaned.find_first_of('\\') == std::string::npos && cleaned.find("//") == std::string::npos,
        "one separator stands between two names");
}

void check_mapping(const std::string& path, const std::string& folder, std::uint32_t user) {
    const std::string mapped =
        ServedRoot::service().make_transmit_path(1, user, path.c_str(), true);
    require(mapped == folder || mapped.starts_with(folder + "/"), "a user's folder isn't left");
    for (const char* piece : {"//", "/./", "/../"}) {
        require((mapped + "/").find(piece, folder.size()) == std::string::npos,
                "a mapped path is in normal form");
    }
}

}  // namespace

// No text of a client names anything outside the storage, nor outside the user's folder.
void run(std::string_view input) {
    static const ServedStorage served({.use_user_id = "true", .group_by_user_id = "true"});
    static const std::string storage = served.storage().substr(0, served.storage().size() - 1);
    const std::string path(input);
    check_clean_path(path);
    check_mapping(path, storage, 0);
    check_mapping(path, storage + "/1000/1234", 1234);
    check_mapping(path, storage + "/-296/-1", 4294967295);
    if (path.starts_with('n')) {
        // Long enough to be cut, wherever the input puts the cut.
        check_mapping(std::string(4000, 'n') + path, storage + "/0/7", 7);
    }
}
