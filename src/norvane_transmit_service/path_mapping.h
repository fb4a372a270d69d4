#pragma once

#include <string>

// Rebuilds a client's path from its components, so that it can't climb out of the folder that it is
// put behind: it begins with "/", has no other separator, no empty, "." or ".." component, and ends
// in "/" only if the client's path did, white space behind it aside. Both "/" and "\" separate.
std::string clean_path(const std::string& in);
