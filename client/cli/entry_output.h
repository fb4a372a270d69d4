#pragma once

#include <string>

#include "client/cli/json.h"
#include "client/listing.h"

namespace transmit::cli {

// What is known of a file or folder, as an object.
Json entry_object(const Entry& entry, const std::string& path);

// A line of a listing, as `name` or with size and time before it. Folders end in /.
void print_entry(const Entry& entry, const std::string& name, bool details);

}  // namespace transmit::cli
