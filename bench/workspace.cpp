#include "bench/workspace.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/support/files.h"

namespace bench {
namespace {

constexpr std::int64_t block_size = 1 << 20;

void make_public(const std::string& folder) {
    std::filesystem::create_directories(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::all);
}

}  // namespace

// A root that nobody else may write to: the FTP server refuses any other.
Workspace::Workspace() {
    std::filesystem::permissions(root(), std::filesystem::perms(0755));
    make_public(files());
}

std::string Workspace::make_private_folder(const std::string& name) const {
    std::string folder = root() + name + '/';
    make_public(folder);
    return folder;
}

void Workspace::make_file(const std::string& name, std::int64_t size) const {
    static const std::string block = support::random_bytes(block_size, 1);
    std::ofstream file(files() + name, std::ios::binary | std::ios::trunc);
    for (std::int64_t left = size; left > 0; left -= block_size) {
        file.write(block.data(), std::min(left, block_size));
    }
}

void Workspace::make_sparse_file(const std::string& name, std::int64_t size) const {
    std::ofstream(files() + name, std::ios::trunc).close();
    std::filesystem::resize_file(files() + name, static_cast<std::uintmax_t>(size));
}

void Workspace::make_files(const FileRow& row) const {
    make_folder(row.folder);
    for (int index = 0; index < row.count; ++index) {
        make_file(row.name(index), row.size);
    }
}

void Workspace::make_folder(const std::string& name) const {
    make_public(files() + name);
}

void Workspace::remove(const std::string& name) const {
    std::filesystem::remove_all(files() + name);
}

}  // namespace bench
