#include "kestin_base/detail/log_settings.h"

#include <ini.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

#include "kestin_base/path.h"

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

    bool complete() const { return file && level && size_mib && count; }
};

struct Sections {
    Section run;
    Section debug;
};

bool read_text(std::string_view text, std::optional<std::string>& value) {
    if (value || text.empty()) {
        return false;
    }
    value = text;
    return true;
}

bool read_number(std::string_view text, std::uint64_t least, std::uint64_t most,
                 std::optional<std::uint64_t>& value) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (value || error != std::errc() || end != text.data() + text.size() || number < least ||
        number > most) {
        return false;
    }
    value = number;
    return true;
}

bool read_setting(std::string_view key, std::string_view text, Section& section) {
    if (key == "file") {
        return read_text(text, section.file);
    }
    if (key == "level") {
        return read_number(text, 0, last_level, section.level);
    }
    if (key == "size") {
        return read_number(text, 1, max_size_mib, section.size_mib);
    }
    return key == "count" && read_number(text, 0, max_count, section.count);
}

// inih's handler: 0 makes the line a fault.
int take_setting(void* user, const char* section, const char* key, const char* text) {
    auto& sections = *static_cast<Sections*>(user);
    const std::string_view name = section;
    if (name == "run") {
        return static_cast<int>(read_setting(key, text, sections.run));
    }
    return static_cast<int>(name == "debug" && read_setting(key, text, sections.debug));
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

bool read_log_settings(const char* path, std::array<LogSettings, 2>& logs) {
    Sections sections;
    std::string folder;
    if (ini_parse(path, take_setting, &sections) != 0 || !sections.run.complete() ||
        !sections.debug.complete() || !kestin_extract_directory(path, folder, true)) {
        return false;
    }
    const std::string base = folder + "/..";
    logs = {settings_of(sections.run, base), settings_of(sections.debug, base)};
    return true;
}

}  // namespace Kestin::Base::detail
