#include "tests/system/process_figures.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace process_figures {

namespace {

std::string folder_of(pid_t pid) {
    return "/proc/" + std::to_string(pid) + "/";
}

std::uint64_t kibibytes_in_status(pid_t pid, const std::string& field) {
    std::ifstream status(folder_of(pid) + "status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) {
            return std::stoull(line.substr(field.size() + 1));
        }
    }
    throw std::runtime_error("no " + field + " of process " + std::to_string(pid));
}

}  // namespace

std::uint64_t resident_memory(pid_t pid) {
    return kibibytes_in_status(pid, "VmRSS") * 1024;
}

std::uint64_t peak_resident_memory(pid_t pid) {
    return kibibytes_in_status(pid, "VmHWM") * 1024;
}

std::size_t open_descriptors(pid_t pid) {
    const std::filesystem::directory_iterator entries(folder_of(pid) + "fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace process_figures
