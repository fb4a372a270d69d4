#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/error.h"

namespace transmit {

// One entry of a folder. The name is what the server sent, to be trusted with nothing: it may be
// empty, hold control bytes or mean another folder.
struct Entry {
    bool is_folder = false;
    std::string name;
    std::int64_t size = 0;  // of a file, in bytes
    std::int64_t time = 0;  // of a file, in seconds since 1970-01-01 UTC
};

// One storage of the list. The id is the text of the server's settings.
struct Storage {
    std::string id;
    std::string name;
};

// The documents of get_path_content and get_storage_information as values, in the server's order.
// Ill-formed XML, a missing name or a number that is none is bad_answer; unknown elements and
// attributes are passed over.
Result<std::vector<Entry>> parse_listing(std::string_view document);
Result<std::vector<Storage>> parse_storages(std::string_view document);

}  // namespace transmit
