#include "bench/measure/process_tree.h"

#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>

#include "tests/support/files.h"

namespace bench {
namespace {

// The fields of /proc/<pid>/stat from the third on, which follow the name in parentheses.
struct Stat {
    pid_t parent = 0;
    long ticks = 0;
    long pages = 0;
};

std::optional<Stat> stat_of(pid_t process) {
    const std::string text = support::read_file("/proc/" + std::to_string(process) + "/stat");
    const std::size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(text.substr(name_end + 1));
    std::vector<std::string> values(1);
    while (fields >> values.back()) {
        values.emplace_back();
    }
    const auto field = [&](std::size_t number) {
        return std::stol(values.at(number - 3));
    };
    return Stat{static_cast<pid_t>(field(4)), field(14) + field(15) + field(16) + field(17),
                field(24)};
}

std::vector<pid_t> all_processes() {
    std::vector<pid_t> processes;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        pid_t process = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), process).ec == std::errc()) {
            processes.push_back(process);
        }
    }
    return processes;
}

long sum_over_tree(pid_t process, long Stat::*field) {
    const auto stat = stat_of(process);
    long sum = stat ? (*stat).*field : 0;
    for (const pid_t child : children_of(process)) {
        sum += sum_over_tree(child, field);
    }
    return sum;
}

}  // namespace

std::vector<pid_t> children_of(pid_t process) {
    std::vector<pid_t> children;
    for (const pid_t candidate : all_processes()) {
        const auto stat = stat_of(candidate);
        if (stat && stat->parent == process) {
            children.push_back(candidate);
        }
    }
    return children;
}

std::chrono::duration<double> processor_time(pid_t process) {
    static const auto ticks_per_second = static_cast<double>(sysconf(_SC_CLK_TCK));
    return std::chrono::duration<double>(static_cast<double>(sum_over_tree(process, &Stat::ticks)) /
                                         ticks_per_second);
}

std::int64_t resident_memory(pid_t process) {
    return sum_over_tree(process, &Stat::pages) * sysconf(_SC_PAGESIZE);
}

}  // namespace bench
