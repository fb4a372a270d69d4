#pragma once

#include <array>
#include <string>

#include "kestin_base/detail/line_file.h"

namespace Kestin::Base::detail {

// One section of the log's settings file.
struct LogSettings {
    LineFileSettings file;
    int lowest_level = 0;
};

// Reads the sections [run] and [debug], in this order. Returns an empty text, or what is wrong, in
// words for a person: the file can't be read, a line is no setting, or a setting is missing,
// unknown, given twice or out of its range. File names come out absolute, counted from the folder
// above the one that holds the settings file.
std::string read_log_settings(const char* path, std::array<LogSettings, 2>& logs);

}  // namespace Kestin::Base::detail
