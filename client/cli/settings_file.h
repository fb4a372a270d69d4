#pragma once

#include <string>
#include <vector>

#include "client/error.h"

namespace transmit::cli {

// One line "name = value" of the settings file.
struct Setting {
    std::string name;
    std::string value;
};

// $XDG_CONFIG_HOME/transmit/config.ini, or ~/.config/transmit/config.ini (the XDG base
// directories). Empty if neither variable holds an absolute path.
std::string settings_path();

// The settings of a file in its order; a file that doesn't exist has none. Section headings mean
// nothing. A line that is no setting is invalid_request, a file that can't be read local_file.
Result<std::vector<Setting>> read_settings(const std::string& path);

}  // namespace transmit::cli
