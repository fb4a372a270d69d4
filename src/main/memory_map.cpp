#include "src/main/memory_map.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {

// The next word of the line, which is taken off it.
std::string_view take_word(std::string_view& line) {
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find(' ', begin), line.size());
    const std::string_view word = line.substr(begin, end - begin);
    line.remove_prefix(end);
    return word;
}

std::uint64_t hexadecimal(std::string_view digits) {
    std::uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    return number;
}

std::uint32_t access_of(std::string_view permissions) {
    std::uint32_t access = 0;
    access |= permissions.starts_with("r") ? PF_R : 0;
    access |= permissions.substr(1).starts_with("w") ? PF_W : 0;
    access |= permissions.substr(2).starts_with("x") ? PF_X : 0;
    return access;
}

// Of the two-letter flags in proc(5): "io" and "pf" are memory of devices and pages without a
// record of their own, "dd" is exempted from dumps.
bool is_dumpable(std::string_view flags) {
    bool readable = false;
    while (!flags.empty()) {
        const std::string_view flag = take_word(flags);
        if (flag == "io" || flag == "pf" || flag == "dd") {
            return false;
        }
        readable = readable || flag == "rd";
    }
    return readable;
}

}  // namespace

bool MemoryMap::load(const char* smaps) {
    const int file = open(smaps, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    static std::array<char, 64 << 10> buffer;
    std::size_t filled = 0;
    ssize_t got = 0;
    while ((got = read(file, buffer.data() + filled, buffer.size() - filled)) > 0) {
        std::string_view text(buffer.data(), filled + static_cast<std::size_t>(got));
        std::size_t end = 0;
        while ((end = text.find('\n')) != std::string_view::npos) {
            read_line(text.substr(0, end));
            text.remove_prefix(end + 1);
        }
        filled = text.size();
        std::memmove(buffer.data(), text.data(), filled);
    }
    close(file);
    return count_ > 0;
}

void MemoryMap::read_line(std::string_view line) {
    constexpr std::string_view flags = "VmFlags:";
    if (line.starts_with(flags)) {
        end_segment(line.substr(flags.size()));
    } else if (!line.empty() && (line[0] < 'A' || line[0] > 'Z')) {
        begin_segment(line);  // the figures of a range have names with capitals
    }
}

// "7f5e3c000000-7f5e3c021000 rw-p 00000000 00:00 0    /path"
void MemoryMap::begin_segment(std::string_view line) {
    const std::string_view range = take_word(line);
    const std::size_t dash = std::min(range.find('-'), range.size() - 1);
    current_.begin = hexadecimal(range.substr(0, dash));
    current_.end = hexadecimal(range.substr(dash + 1));
    current_.access = access_of(take_word(line));
    current_.file_offset = hexadecimal(take_word(line));
    take_word(line);  // device
    take_word(line);  // inode
    const std::size_t path = line.find('/');
    current_.file = path == std::string_view::npos ? "" : line.substr(path);
    current_.file = keep(current_.file);
}

void MemoryMap::end_segment(std::string_view flags) {
    if (is_dumpable(flags) && count_ < segments_.size()) {
        segments_[count_++] = current_;
    }
}

// Ranges of one file follow one another, and share its name. A name that finds no room is lost.
std::string_view MemoryMap::keep(std::string_view file) {
    if (count_ > 0 && segments_[count_ - 1].file == file) {
        return segments_[count_ - 1].file;
    }
    if (file.size() > names_.size() - names_size_) {
        return {};
    }
    char* kept = names_.data() + names_size_;
    std::copy(file.begin(), file.end(), kept);
    names_size_ += file.size();
    return {kept, file.size()};
}
