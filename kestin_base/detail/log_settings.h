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

// Reads the sections [run] and [debug], in this order. Strict: false if the file can't be read, if
// a line is no setting, or a setting is missing, unknown, given twice or out of its range. File
// names come out absolute, counted from the folder above the one that holds the settings file.
bool read_log_settings(const char* path, std::array<LogSettings, 2>& logs);

}  // namespace Kestin::Base::detail
