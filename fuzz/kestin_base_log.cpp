#include <array>
#include <string>

#include "fuzz/fuzz_target.h"
#include "kestin_base/detail/log_settings.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"

// Settings of the logs: refused or complete, whatever they hold.
void run(std::string_view input) {
    static const support::TemporaryFolder folder;
    static const std::string path = folder.path() + "log.ini";
    support::write_file(path, input);
    std::array<Kestin::Base::detail::LogSettings, 2> logs;
    if (!Kestin::Base::detail::read_log_settings(path.c_str(), logs).empty()) {
        return;
    }
    for (const auto& log : logs) {
        require(log.file.path.starts_with('/'), "a log's name is absolute");
        require(log.file.size >= (1U << 20U) && log.lowest_level >= 0 && log.lowest_level <= 4,
                "a log's numbers are within their bounds");
    }
}
