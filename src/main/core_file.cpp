// The layout of elf(5) with the notes of Linux's own core files: a header, one program header for
// the notes and one for each segment of memory, the notes, the memory from a page boundary on.

#include "src/main/core_file.h"

#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

// The header of this executable, which the linker places: it knows the processor.
extern "C" __attribute__((visibility("hidden")))
const Elf64_Ehdr executable_header asm("__ehdr_start");

namespace {

constexpr std::size_t page_size = 4096;
constexpr std::size_t block_size = 64 * page_size;

// Writes a file from front to back and remembers a failure.
class Output {
  public:
    explicit Output(int file, std::uint64_t position) : file_(file), position_(position) {}

    std::uint64_t position() const { return position_; }
    bool succeeded() const { return succeeded_; }

    void write(const void* data, std::size_t size) {
        write_at(position_, data, size);
        position_ += size;
    }

    void write_at(std::uint64_t position, const void* data, std::size_t size) {
        const char* next = static_cast<const char*>(data);
        while (succeeded_ && size > 0) {
            const ssize_t written = pwrite(file_, next, size, static_cast<off_t>(position));
            succeeded_ = written > 0;
            if (succeeded_) {
                next += written;
                position += static_cast<std::size_t>(written);
                size -= static_cast<std::size_t>(written);
            }
        }
    }

    void skip(std::uint64_t size) { position_ += size; }
    void align(std::uint64_t boundary) { skip((boundary - position_ % boundary) % boundary); }

    // Makes a hole of what was skipped last.
    void finish() {
        succeeded_ = succeeded_ && ftruncate(file_, static_cast<off_t>(position_)) == 0;
    }

  private:
    int file_;
    std::uint64_t position_;
    bool succeeded_ = true;
};

constexpr std::uint64_t note_boundary = 4;

// The head of a note of `size` bytes; its contents follow, then padding to the boundary.
void begin_note(Output& out, std::uint32_t type, std::size_t size) {
    constexpr std::array<char, 8> owner{"CORE"};
    const Elf64_Nhdr head{sizeof "CORE", static_cast<std::uint32_t>(size), type};
    out.write(&head, sizeof head);
    out.write(owner.data(), owner.size());
}

void write_note(Output& out, std::uint32_t type, const void* data, std::size_t size) {
    begin_note(out, type, size);
    out.write(data, size);
    out.align(note_boundary);
}

// Which files are mapped where: a count, the page size, three numbers a range, then all names.
void write_file_note(Output& out, std::span<const MemorySegment> segments) {
    constexpr std::size_t numbers = 3;
    std::uint64_t count = 0;
    std::size_t size = 2 * sizeof count;
    for (const MemorySegment& segment : segments) {
        if (!segment.file.empty()) {
            count += 1;
            size += numbers * sizeof(std::uint64_t) + segment.file.size() + 1;
        }
    }
    begin_note(out, NT_FILE, size);
    const std::array<std::uint64_t, 2> head{count, page_size};
    out.write(head.data(), sizeof head);
    for (const MemorySegment& segment : segments) {
        if (!segment.file.empty()) {
            const std::array<std::uint64_t, numbers> range{segment.begin, segment.end,
                                                           segment.file_offset / page_size};
            out.write(range.data(), sizeof range);
        }
    }
    for (const MemorySegment& segment : segments) {
        if (!segment.file.empty()) {
            out.write(segment.file.data(), segment.file.size());
            out.write("", 1);
        }
    }
    out.align(note_boundary);
}

void write_thread_notes(Output& out, const ThreadState& thread) {
    write_note(out, NT_PRSTATUS, &thread.status, sizeof thread.status);
    write_note(out, NT_FPREGSET, &thread.floating_point, sizeof thread.floating_point);
}

// Debuggers take what describes the process from between the first thread and the second.
void write_notes(Output& out, const ProcessState& process) {
    write_thread_notes(out, process.threads.front());
    write_note(out, NT_PRPSINFO, &process.identity, sizeof process.identity);
    write_note(out, NT_SIGINFO, &process.cause, sizeof process.cause);
    write_note(out, NT_AUXV, process.auxiliary_vector.data(), process.auxiliary_vector.size());
    write_file_note(out, process.map.segments());
    for (const ThreadState& thread : process.threads.subspan(1)) {
        write_thread_notes(out, thread);
    }
}

bool is_zero(const char* page) {
    static constexpr std::array<char, page_size> zeros{};
    return std::memcmp(page, zeros.data(), page_size) == 0;
}

// Writes a block of whole pages but for those of zeros.
void write_pages(Output& out, std::span<const char> block) {
    std::size_t written = 0;
    for (std::size_t at = 0; at < block.size(); at += page_size) {
        if (is_zero(block.data() + at)) {
            out.write(block.data() + written, at - written);
            out.skip(page_size);
            written = at + page_size;
        }
    }
    out.write(block.data() + written, block.size() - written);
}

void write_memory(Output& out, int memory, const MemorySegment& segment) {
    static std::array<char, block_size> block;
    for (std::uint64_t address = segment.begin; address < segment.end;) {
        const std::size_t wanted = std::min<std::uint64_t>(block_size, segment.end - address);
        const ssize_t got = pread(memory, block.data(), wanted, static_cast<off_t>(address));
        const std::size_t whole_pages =
            got > 0 ? static_cast<std::size_t>(got) / page_size * page_size : 0;
        if (whole_pages > 0) {
            write_pages(out, {block.data(), whole_pages});
        } else {
            out.skip(page_size);
        }
        address += std::max(whole_pages, page_size);
    }
}

Elf64_Ehdr file_header(std::size_t program_headers) {
    Elf64_Ehdr header = executable_header;
    header.e_type = ET_CORE;
    header.e_entry = 0;
    header.e_phoff = sizeof header;
    header.e_phnum = static_cast<Elf64_Half>(program_headers);
    header.e_shoff = 0;
    header.e_shentsize = 0;
    header.e_shnum = 0;
    header.e_shstrndx = SHN_UNDEF;
    return header;
}

Elf64_Phdr notes_header(std::uint64_t offset, std::uint64_t size) {
    Elf64_Phdr header{};
    header.p_type = PT_NOTE;
    header.p_offset = offset;
    header.p_filesz = size;
    header.p_align = note_boundary;
    return header;
}

Elf64_Phdr segment_header(std::uint64_t offset, const MemorySegment& segment) {
    Elf64_Phdr header{};
    header.p_type = PT_LOAD;
    header.p_flags = segment.access;
    header.p_offset = offset;
    header.p_vaddr = segment.begin;
    header.p_filesz = segment.size();
    header.p_memsz = segment.size();
    header.p_align = page_size;
    return header;
}

}  // namespace

bool write_core_file(int file, const ProcessState& process) {
    if (ftruncate(file, 0) != 0) {
        return false;
    }
    const std::span<const MemorySegment> segments = process.map.segments();
    const Elf64_Ehdr header = file_header(segments.size() + 1);
    const std::uint64_t notes = sizeof header + (segments.size() + 1) * sizeof(Elf64_Phdr);

    Output contents(file, notes);
    write_notes(contents, process);
    Output headers(file, 0);
    headers.write(&header, sizeof header);
    const Elf64_Phdr noted = notes_header(notes, contents.position() - notes);
    headers.write(&noted, sizeof noted);

    contents.align(page_size);
    for (const MemorySegment& segment : segments) {
        const Elf64_Phdr placed = segment_header(contents.position(), segment);
        headers.write(&placed, sizeof placed);
        write_memory(contents, process.memory, segment);
    }
    contents.finish();
    return headers.succeeded() && contents.succeeded();
}
