#pragma once

#include <map>
#include <set>
#include <string>

namespace support {

// What a folder holds, by names relative to it: of each entry its kind and mode, of a file its time
// and contents too. Two equal states say that nothing was changed in between. Links count for
// themselves.
using FolderState = std::map<std::string, std::string>;

// Without what stands at, and below, the relative names of `except`.
FolderState state_of(const std::string& folder, const std::set<std::string>& except = {});

}  // namespace support
