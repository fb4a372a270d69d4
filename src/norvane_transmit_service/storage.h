#pragma once

#include <cstdint>
#include <map>
#include <string>

// A place that clients move files into and out of.
struct Storage {
    bool show = false;             // whether the list that clients read names it
    std::uint32_t id = 0;          // what requests name it by
    std::string id_text;           // the id as the configuration writes it
    std::string name;              // what clients call it
    std::string directory;         // its root, in absolute normal form
    bool create_directory = true;  // whether requests make the root if it is missing
};

// Later requests find a storage by its id; iteration is in rising order of ids.
using StorageTable = std::map<std::uint32_t, Storage>;
