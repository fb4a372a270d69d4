#include "kestin_base/detail/log_settings.h"

#include <ini.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>

#include "kestin_base/path.h"
#include "kestin_base/strings.h"

namespace Kestin::Base::detail {
namespace {

constexpr std::uint64_t last_level = 4;
constexpr std::uint64_t max_size_mib = 1 << 20U;
constexpr std::uint64_t max_count = 1000;

// A section as far as it has been read.
struct Section {
    std::optional<std::string> file;
    std::optional<std::uint64_t> level;
    std::optional<std::uint64_t> size_mib;
    std::optional<std::uint64_t> count;
};

// The file as far as it has been read.
struct Reading {
    std::FILE* file = nullptr;
    int line = 0;
    Section run;
    Section debug;
    std::string fault;  // the first one, and its line
    int fault_line = 0;
};

// These return an empty text, or what is wrong.

std::string read_text(std::string_view text, std::optional<std::string>& value) {
    if (text.empty()) {
        return "the value is empty";
    }
    value = text;
    return "";
}

std::string read_number(std::string_view text, std::uint64_t least, std::uint64_t most,
                        std::optional<std::uint64_t>& value) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least ||
        number > most) {
        return "the value must be a number from " + std::to_string(least) + " to " +
               std::to_string(most);
    }
    value = number;
    return "";
}

std::string read_once(auto& value, auto read) {
    return value ? "the setting is given twice" : read();
}

std::string read_setting(std::string_view key, std::string_view text, Section& section) {
    const auto number = [text](std::uint64_t least, std::uint64_t most, auto& value) {
        return read_once(value, [&] { return read_number(text, least, most, value); });
    };
    if (key == "file") {
        return read_once(section.file, [&] { return read_text(text, section.file); });
    }
    if (key == "level") {
        return number(0, last_level, section.level);
    }
    if (key == "size") {
        return number(1, max_size_mib, section.size_mib);
    }
    if (key == "count") {
        return number(0, max_count, section.count);
    }
    return "the setting is unknown";
}

std::string read_setting(std::string_view section, std::string_view key, std::string_view text,
                         Reading& reading) {
    if (section == "run") {
        return read_setting(key, text, reading.run);
    }
    return section == "debug" ? read_setting(key, text, reading.debug) : "the section is unknown";
}

// inih's reader, which counts the lines as inih does.
char* take_line(char* line, int size, void* user) {
    auto& reading = *static_cast<Reading*>(user);
    ++reading.line;
    return std::fgets(line, size, reading.file);
}

// inih's handler: 0 makes the line a fault.
int take_setting(void* user, const char* section, const char* key, const char* text) {
    auto& reading = *static_cast<Reading*>(user);
    const std::string fault = read_setting(section, key, text, reading);
    if (!fault.empty() && reading.fault.empty()) {
        reading.fault = std::string(key) + " = " + text + ": " + fault;
        reading.fault_line = reading.line;
    }
    return static_cast<int>(fault.empty());
}

// Returns the first line that is at fault, 0 if there is none, below 0 if the file can't be read,
// with the reason in errno.
int read_lines(const char* path, Reading& reading) {
    reading.file = std::fopen(path, "re");
    if (reading.file == nullptr) {
        return -1;
    }
    int line = ini_parse_stream(take_line, &reading, take_setting, &reading);
    if (std::ferror(reading.file) != 0) {
        line = -1;
    }
    const int error = errno;
    static_cast<void>(std::fclose(reading.file));
    errno = error;
    return line;
}

std::string missing_setting(const char* name, const Section& section) {
    const std::pair<const char*, bool> settings[] = {{"file", section.file.has_value()},
                                                     {"level", section.level.has_value()},
                                                     {"size", section.size_mib.has_value()},
                                                     {"count", section.count.has_value()}};
    for (const auto& [key, is_there] : settings) {
        if (!is_there) {
            return std::string("[") + name + "] lacks the setting " + key;
        }
    }
    return "";
}

std::string fault_of(const char* path, int line, const Reading& reading) {
    const std::string file = path;
    if (line < 0) {
        return file + ": " + kestin_error_text(errno);
    }
    if (line > 0) {
        const bool is_explained = line == reading.fault_line;
        return file + ":" + std::to_string(line) + ": " +
               (is_explained ? reading.fault : "this is neither a section nor a setting");
    }
    std::string missing = missing_setting("run", reading.run);
    if (missing.empty()) {
        missing = missing_setting("debug", reading.debug);
    }
    return missing.empty() ? "" : file + ": " + missing;
}

std::string absolute_from(const std::string& base, const std::string& file) {
    std::string absolute;
    kestin_absolute_pathname_format_strictly(file.starts_with('/') ? file : base + "/" + file,
                                             absolute, true);
    return absolute;
}

LogSettings settings_of(const Section& section, const std::string& base) {
    LogSettings settings;
    settings.file.path = absolute_from(base, *section.file);
    settings.file.size = *section.size_mib << 20U;
    settings.file.count = *section.count;
    settings.lowest_level = static_cast<int>(*section.level);
    return settings;
}

}  // namespace

std::string read_log_settings(const char* path, std::array<LogSettings, 2>& logs) {
    Reading reading;
    const int line = read_lines(path, reading);
    std::string fault = fault_of(path, line, reading);
    if (fault.empty()) {
        std::string folder;
        kestin_extract_directory(path, folder, true);
        const std::string base = folder + "/..";
        logs = {settings_of(reading.run, base), settings_of(reading.debug, base)};
    }
    return fault;
}

}  // namespace Kestin::Base::detail
