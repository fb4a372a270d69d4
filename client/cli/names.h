#pragma once

#include <string>
#include <string_view>

namespace transmit::cli {

// The last component of a path on the server, whose separators are `/` and `\`: the name that it
// may get here. Empty if there is none that stays inside of a local folder.
std::string remote_name(std::string_view path);

// The last component of a local path: the name that it gets on the server. Empty if there is none
// that the server would take as one component.
std::string local_name(std::string_view path);

// `folder` and `name` with one separator between them; an empty folder adds nothing.
std::string joined(std::string folder, std::string_view name);

bool ends_in_separator(std::string_view path);

bool is_local_folder(const std::string& path);

}  // namespace transmit::cli
