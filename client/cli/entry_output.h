#pragma once

#include <string>

#include "client/cli/json.h"
#include "client/listing.h"

namespace transmit::cli {

// What is known of a file or folder, as an object. `unfinished`: it is an upload that isn't done.
Json entry_object(const Entry& entry, const std::string& path, bool unfinished = false);

// A line of a listing, as `name` or with size and time before it. Folders end in /.
void print_entry(const Entry& entry, const std::string& name, bool details,
                 bool unfinished = false);

}  // namespace transmit::cli
