#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// One range of addresses whose contents a debugger may want.
struct MemorySegment {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t file_offset = 0;
    std::uint32_t access = 0;    // PF_R, PF_W, PF_X of elf(5)
    std::string_view file = {};  // what is mapped there; empty for memory without a file

    std::uint64_t size() const { return end - begin; }
};

// The readable memory of a process. Loaded without any allocation; meant to be a static object, of
// which only what is used takes memory.
class MemoryMap {
  public:
    // Reads a file /proc/<pid>/smaps (proc(5)). Memory of devices and of the system's own is left
    // out, and so is what the process has exempted from dumps (madvise(2), MADV_DONTDUMP).
    bool load(const char* smaps);

    std::span<const MemorySegment> segments() const { return {segments_.data(), count_}; }

  private:
    void read_line(std::string_view line);
    void begin_segment(std::string_view line);
    void end_segment(std::string_view flags);
    std::string_view keep(std::string_view file);

    // The header of a core file counts its segments in 16 bits and wants one for its notes; the
    // system's own limit on the ranges of a process (vm.max_map_count) is 65530.
    static constexpr std::size_t max_segments = 65530;
    static constexpr std::size_t max_names = 1 << 20;

    std::array<MemorySegment, max_segments> segments_{};
    std::size_t count_ = 0;
    std::array<char, max_names> names_{};
    std::size_t names_size_ = 0;
    MemorySegment current_;
};
