#include "kestin_base/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <thread>
#include <vector>

#include "kestin_base/directory.h"
#include "kestin_base/file_system.h"
#include "tests/unit/kestin_base/temporary_folder.h"

using namespace Kestin::Base;
namespace fs = std::filesystem;

namespace {

std::string read_of(File& file, std::uint64_t size) {
    std::string bytes(size, '?');
    std::uint64_t got = 99;
    EXPECT_TRUE(file.read(bytes.data(), size, got));
    bytes.resize(got);
    return bytes;
}

mode_t mode_of(const std::string& path) {
    struct stat facts {};
    ::lstat(path.c_str(), &facts);
    return facts.st_mode & 07777U;
}

std::int64_t time_of(const std::string& path) {
    std::int64_t time = 0;
    EXPECT_TRUE(file_get_time(path.c_str(), time));
    return time;
}

// Whether `body` returns true in a process without root's power over permissions.
template <typename Body>
bool holds_without_privilege(Body body) {
    constexpr uid_t nobody = 65534;
    const pid_t child = ::fork();
    if (child == 0) {
        const bool dropped = ::getuid() != 0 || ::setuid(nobody) == 0;
        ::_exit(dropped && body() ? 0 : 1);
    }
    int status = 1;
    ::waitpid(child, &status, 0);
    return status == 0;
}

class FileSystemTest : public testing::Test {
  protected:
    TemporaryFolder root;
};

using FileTest = FileSystemTest;
using RenameTest = FileSystemTest;
using RemoveTreeTest = FileSystemTest;
using DirectoryTest = FileSystemTest;

}  // namespace

TEST_F(FileTest, WritesAddBehindWhatIsThere) {
    const std::string path = root.with_file("f", "old ");
    File file;
    ASSERT_TRUE(file.open(path.c_str(), true, false));
    EXPECT_TRUE(file.is_open());
    EXPECT_TRUE(file.write("new", 3));
    EXPECT_TRUE(file.write(nullptr, 0));
    EXPECT_EQ(bytes_of(path), "old new");
    ASSERT_TRUE(file.open((root / "g").c_str(), true, false));
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(file.close());
    EXPECT_FALSE(file.is_open());
    EXPECT_TRUE(fs::is_empty(root / "g"));
}

TEST_F(FileTest, TheEndIsMetByAReadThatFallsShort) {
    const std::string path = root.with_file("f", "12345678");
    File file;
    ASSERT_TRUE(file.open(path.c_str(), false, false));
    EXPECT_EQ(read_of(file, 4), "1234");
    EXPECT_EQ(read_of(file, 4), "5678");
    EXPECT_FALSE(file.is_eof());
    EXPECT_EQ(read_of(file, 4), "");
    EXPECT_TRUE(file.is_eof());
    ASSERT_TRUE(file.seek(6));
    EXPECT_FALSE(file.is_eof());
    EXPECT_EQ(read_of(file, 4), "78");
    EXPECT_TRUE(file.is_eof());
    for (const std::int64_t beyond : {std::int64_t{9}, std::numeric_limits<std::int64_t>::max()}) {
        ASSERT_TRUE(file.seek(beyond));
        EXPECT_EQ(read_of(file, 4), "");
        EXPECT_TRUE(file.is_eof());
    }
    EXPECT_FALSE(file.seek(-1));
    ASSERT_TRUE(file.open(path.c_str(), false, false));
    EXPECT_FALSE(file.is_eof());
    EXPECT_EQ(read_of(file, 2), "12");
}

TEST_F(FileTest, AClosedFileRefuses) {
    File file;
    std::array<char, 4> buffer{};
    std::uint64_t got = 0;
    EXPECT_FALSE(file.read(buffer.data(), buffer.size(), got));
    EXPECT_FALSE(file.read(buffer.data(), 0, got));
    EXPECT_FALSE(file.write(buffer.data(), buffer.size()));
    EXPECT_FALSE(file.write(buffer.data(), 0));
    EXPECT_FALSE(file.seek(0));
    EXPECT_FALSE(file.is_open());
    EXPECT_FALSE(file.is_eof());
}

TEST_F(FileTest, OnlyRegularFilesAreOpenedAndLinksAreNotWritten) {
    const std::string target = root.with_file("target", "x");
    fs::create_symlink(target, root / "link");
    fs::create_symlink(root / "none", root / "dangling");
    ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
    File file;
    for (const bool write : {false, true}) {
        for (const std::string& path : {root.path(), root / "pipe", std::string("/dev/null"),
                                        root / "none/f", std::string()}) {
            EXPECT_FALSE(file.open(path.c_str(), write, false)) << path << write;
        }
    }
    EXPECT_FALSE(file.open((root / "none").c_str(), false, false));
    EXPECT_TRUE(file.open((root / "link").c_str(), false, false));
    EXPECT_FALSE(file.open((root / "link").c_str(), true, false));
    EXPECT_FALSE(file.is_open());
    EXPECT_FALSE(file.open((root / "dangling").c_str(), true, false));
    EXPECT_FALSE(fs::exists(root / "none"));
}

TEST_F(FileTest, OnlyWhatIsNotThereIsCreated) {
    fs::create_symlink(root / "none", root / "dangling");
    File file;
    for (const std::string& path :
         {root.with_file("f", "x"), root.path(), root / "dangling", root / "none/f"}) {
        EXPECT_FALSE(file.create(path.c_str())) << path;
        EXPECT_FALSE(file.is_open());
    }
    EXPECT_EQ(bytes_of(root / "f"), "x");
    ASSERT_TRUE(file.create((root / "g").c_str()));
    EXPECT_EQ(file.size_at_open(), 0);
    EXPECT_TRUE(file.write("new", 3));
    EXPECT_EQ(bytes_of(root / "g"), "new");
}

TEST_F(FileTest, AWriteThatDoesNotFitIsFalse) {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{1000, before.rlim_max};
    File file;
    ASSERT_TRUE(file.open((root / "f").c_str(), true, false));
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::string data(1500, 'x');
    EXPECT_FALSE(file.write(data.data(), data.size()));
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(fs::file_size(root / "f"), 1000U);
}

TEST_F(FileTest, RoomThatWasSetAsideShowsInNoLengthAndGoesBack) {
    const std::string path = root / "f";
    const auto facts = [&path] {
        struct stat now {};
        ::stat(path.c_str(), &now);
        return now;
    };
    File file;
    EXPECT_FALSE(file.reserve(1 << 20)) << "closed";
    ASSERT_TRUE(file.open(path.c_str(), true, false));
    ASSERT_TRUE(file.write("some", 4));
    const bool is_reserved = file.reserve(1 << 20);
    EXPECT_EQ(facts().st_size, 4);
    EXPECT_EQ(facts().st_blocks * 512 >= 1 << 20, is_reserved);
    ASSERT_TRUE(file.write(" more", 5));
    EXPECT_TRUE(file.sync());
    constexpr int few_blocks = (64 << 10) / 512;
    EXPECT_LE(facts().st_blocks, few_blocks);
    EXPECT_TRUE(file.set_time(-5));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(time_of(path), -5) << "the room was given back before";
    EXPECT_FALSE(file.set_time(-6)) << "closed";
    EXPECT_EQ(bytes_of(path), "some more");
    ASSERT_TRUE(file.open(path.c_str(), true, false));
    file.reserve(1 << 20);
    EXPECT_TRUE(file.close());
    EXPECT_LE(facts().st_blocks, few_blocks);
}

TEST_F(FileTest, NoRoomIsSetAsideThatOthersNeed) {
    File file;
    ASSERT_TRUE(file.open((root / "f").c_str(), true, false));
    const std::uint64_t free = fs::space(root.path()).available;
    EXPECT_FALSE(file.reserve(free));
    EXPECT_FALSE(file.reserve(free - std::min(free, File::reserve_margin / 2)));
    EXPECT_TRUE(file.close());
    struct stat facts {};
    ASSERT_EQ(::stat((root / "f").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_blocks, 0);
}

TEST_F(FileTest, ALockHoldsAgainstOtherOpenFilesUntilItsOwnIsClosed) {
    const std::string path = root.with_file("f", "x");
    File first;
    File second;
    EXPECT_EQ(first.lock(), File::Lock::unsupported) << "closed";
    ASSERT_TRUE(first.open_existing(path.c_str()));
    ASSERT_TRUE(second.open(path.c_str(), false, false));
    EXPECT_EQ(first.lock(), File::Lock::taken);
    EXPECT_EQ(second.lock(), File::Lock::held);
    fs::rename(path, root / "g");
    EXPECT_EQ(second.lock(), File::Lock::held) << "the lock is the file's, not the name's";
    ASSERT_TRUE(second.open_existing((root / "g").c_str()));
    EXPECT_TRUE(first.close());
    EXPECT_EQ(second.lock(), File::Lock::taken);
    EXPECT_TRUE(kestin_can_lock(root.path()));
    EXPECT_TRUE(kestin_can_lock(root / "none"));
    EXPECT_EQ(std::distance(fs::directory_iterator(root.path()), {}), 1);
}

TEST_F(FileTest, AnOpenFileKnowsWhereItStands) {
    const std::string path = root.with_file("f", "12345");
    ASSERT_TRUE(file_set_time(path.c_str(), 7));
    fs::create_symlink(path, root / "link");
    File file;
    EXPECT_FALSE(file.open_existing((root / "none").c_str()));
    EXPECT_FALSE(file.open_existing((root / "link").c_str()));
    EXPECT_FALSE(file.is_at(path.c_str()));
    ASSERT_TRUE(file.open_existing(path.c_str()));
    EXPECT_TRUE(file.is_at(path.c_str()));
    EXPECT_FALSE(file.is_at((root / "link").c_str()));
    EXPECT_EQ(file.look().size, 5);
    EXPECT_EQ(file.look().time, 7);
    fs::rename(path, root / "g");
    root.with_file("f", "12345");
    EXPECT_FALSE(file.is_at(path.c_str()));
    EXPECT_TRUE(file.is_at((root / "g").c_str()));
    EXPECT_TRUE(file.truncate(2));
    EXPECT_TRUE(file.write("+", 1));
    EXPECT_EQ(bytes_of(root / "g"), "12+");
    EXPECT_TRUE(file.flush());
    EXPECT_TRUE(file.write("!", 1)) << "still open";
    EXPECT_TRUE(kestin_sync_path(root.path().c_str()));
    EXPECT_TRUE(kestin_sync_path(path.c_str()));
    EXPECT_FALSE(kestin_sync_path((root / "none").c_str()));
}

TEST_F(FileTest, AttributesStayWithTheFile) {
    constexpr const char* name = "user.kestin.test";
    File file;
    std::string value = "as it was";
    EXPECT_FALSE(file.set_attribute(name, "x"));
    ASSERT_TRUE(file.create((root / "f").c_str()));
    if (!file.set_attribute(name, "first")) {
        GTEST_SKIP() << "this file system has no attributes";
    }
    EXPECT_TRUE(file.set_attribute(name, "second"));
    fs::rename(root / "f", root / "g");
    ASSERT_TRUE(file.open_existing((root / "g").c_str()));
    EXPECT_TRUE(file.get_attribute(name, value));
    EXPECT_EQ(value, "second");
    EXPECT_TRUE(file.set_attribute(name, std::string(File::longest_attribute + 1, 'x')));
    EXPECT_FALSE(file.get_attribute(name, value));
    EXPECT_TRUE(file.remove_attribute(name));
    EXPECT_FALSE(file.get_attribute(name, value));
    EXPECT_EQ(value, "second");
}

TEST_F(FileSystemTest, WhatStandsAtAPath) {
    const std::string file = root.with_file("f", "12345");
    fs::create_symlink(root.path(), root / "to_folder");
    fs::create_symlink(root / "none", root / "dangling");
    fs::create_hard_link(file, root / "same");
    EXPECT_TRUE(kestin_access_safe(root.path().c_str()));
    EXPECT_TRUE(kestin_access_safe((root / "dangling").c_str()));
    EXPECT_FALSE(kestin_access_safe((root / "none").c_str()));
    EXPECT_FALSE(kestin_access_safe((root / "f/x").c_str()));
    EXPECT_FALSE(kestin_access_safe((root / std::string(300, 'n')).c_str()));
    fs::create_symlink(root / "circle", root / "circle");
    EXPECT_TRUE(kestin_access_safe((root / "circle/x").c_str())) << "it can't be told";
    EXPECT_TRUE(kestin_look_at((root / "circle/x").c_str()).is_unknown);
    EXPECT_FALSE(kestin_look_at((root / "dangling").c_str()).is_unknown);
    ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(kestin_look_at((root / "pipe").c_str()).is_regular);
    EXPECT_TRUE(kestin_look_at(file.c_str()).is_regular);

    bool is_directory = true;
    EXPECT_FALSE(kestin_path_is_directory((root / "dangling").c_str(), is_directory));
    EXPECT_TRUE(is_directory) << "as it was";
    EXPECT_TRUE(kestin_path_is_directory(file.c_str(), is_directory));
    EXPECT_FALSE(is_directory);
    EXPECT_TRUE(kestin_path_is_directory((root / "to_folder").c_str(), is_directory));
    EXPECT_TRUE(is_directory);

    EXPECT_TRUE(kestin_same_file(file.c_str(), (root / "same").c_str()));
    EXPECT_TRUE(kestin_same_file(file.c_str(), (root / "./f").c_str()));
    EXPECT_FALSE(kestin_same_file(root.path().c_str(), (root / "to_folder").c_str()));
    EXPECT_FALSE(kestin_same_file((root / "none").c_str(), (root / "none").c_str()));

    std::int64_t size = 7;
    EXPECT_FALSE(file_get_size((root / "none").c_str(), size));
    EXPECT_EQ(size, 7);
    EXPECT_TRUE(file_get_size(file.c_str(), size));
    EXPECT_EQ(size, 5);
}

TEST_F(FileSystemTest, TimesAreWholeSecondsRoundedDown) {
    const std::string file = root.with_file("f", "x");
    for (const std::int64_t time : {std::int64_t{0}, std::int64_t{1560000000}, std::int64_t{-1},
                                    std::int64_t{-1000000000}, std::int64_t{0x1'0000'0000}}) {
        EXPECT_TRUE(file_set_time(file.c_str(), time)) << time;
        EXPECT_EQ(time_of(file), time);
    }
    const std::array<timespec, 2> times{timespec{5, 0}, timespec{-2, 500'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
    EXPECT_EQ(time_of(file), -2);

    std::int64_t untouched = 3;
    EXPECT_FALSE(file_get_time((root / "none").c_str(), untouched));
    EXPECT_EQ(untouched, 3);
    EXPECT_FALSE(file_set_time((root / "none").c_str(), 0));
}

TEST_F(FileSystemTest, ATimeTheDiskCanNotKeepIsRefused) {
    const std::string file = root.with_file("f", "x");
    for (const std::int64_t time :
         {std::numeric_limits<std::int64_t>::min(), -std::int64_t{1} << 40U, std::int64_t{1} << 40U,
          std::numeric_limits<std::int64_t>::max()}) {
        const bool kept = file_set_time(file.c_str(), time);
        EXPECT_EQ(kept, time_of(file) == time) << time;
    }
}

TEST_F(FileSystemTest, ATimeOfALinkIsItsOwn) {
    const std::string file = root.with_file("f", "x");
    fs::create_symlink(file, root / "link");
    ASSERT_TRUE(file_set_time(file.c_str(), 1000));
    EXPECT_TRUE(file_set_time((root / "link").c_str(), 2000));
    EXPECT_EQ(time_of(file), 1000);
}

TEST_F(FileSystemTest, TheOwnerMayWriteAfterwards) {
    const std::string file = root.with_file("f", "x");
    fs::create_symlink(file, root / "link");
    ASSERT_EQ(::chmod(file.c_str(), 04440), 0);
    EXPECT_TRUE(kestin_chmod_safe((root / "link").c_str()));
    EXPECT_EQ(mode_of(file), 04440U) << "a link leads nowhere";
    EXPECT_TRUE(kestin_chmod_safe(file.c_str()));
    EXPECT_EQ(mode_of(file), 04640U);
    EXPECT_TRUE(kestin_chmod_safe(file.c_str()));
    EXPECT_FALSE(kestin_chmod_safe((root / "none").c_str()));
}

TEST_F(FileSystemTest, UnlinkRemovesLinksAndFilesOnly) {
    const std::string file = root.with_file("f", "x");
    fs::create_directory(root / "d");
    fs::create_symlink(root / "d", root / "link");
    EXPECT_TRUE(kestin_unlink_safe((root / "link").c_str()));
    EXPECT_TRUE(kestin_unlink_safe(file.c_str()));
    EXPECT_FALSE(kestin_unlink_safe(file.c_str()));
    EXPECT_FALSE(kestin_unlink_safe((root / "d").c_str()));
    EXPECT_TRUE(fs::is_directory(root / "d"));
}

TEST_F(FileSystemTest, FoldersAreMadeWithTheirParents) {
    const std::string deep = root / "a/b/c";
    kestin_create_directory_recursive(deep + "/");
    EXPECT_TRUE(fs::is_directory(deep));
    kestin_create_directory_recursive(deep);
    root.with_file("f", "x");
    kestin_create_directory_recursive(root / "f/g");
    kestin_create_directory_recursive("");
    EXPECT_TRUE(fs::is_regular_file(root / "f"));

    std::vector<std::jthread> threads;
    std::string longest = root.path();
    for (int level = 0; level < 50; ++level) {
        longest += "/level";
    }
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&longest] { kestin_create_directory_recursive(longest); });
    }
    threads.clear();
    EXPECT_TRUE(fs::is_directory(longest));
}

TEST_F(RenameTest, FilesAndFoldersTakeAnotherPath) {
    const std::string file = root.with_file("f", "new");
    const std::string old = root.with_file("g", "old");
    EXPECT_TRUE(kestin_rename_safe(file.c_str(), old.c_str()));
    EXPECT_EQ(bytes_of(old), "new");
    EXPECT_FALSE(fs::exists(file));
    fs::create_directory(root / "d");
    root.with_file("d/in", "x");
    EXPECT_TRUE(kestin_rename_safe((root / "d").c_str(), (root / "e").c_str()));
    EXPECT_EQ(bytes_of(root / "e/in"), "x");
}

TEST_F(RenameTest, AFolderReplacesAFileOrALink) {
    fs::create_directory(root / "d");
    root.with_file("d/in", "x");
    const std::string file = root.with_file("f", "old");
    EXPECT_TRUE(kestin_rename_safe((root / "d").c_str(), file.c_str()));
    EXPECT_EQ(bytes_of(root / "f/in"), "x");
    EXPECT_FALSE(kestin_access_safe((root / "d").c_str()));

    fs::create_directory(root / "other");
    fs::create_symlink(root / "other", root / "link");
    EXPECT_TRUE(kestin_rename_safe(file.c_str(), (root / "link").c_str()));
    EXPECT_EQ(bytes_of(root / "link/in"), "x");
    EXPECT_TRUE(fs::is_directory(root / "other"));
}

TEST_F(RenameTest, NothingIsLostWhenItFails) {
    fs::create_directory(root / "d");
    fs::create_directory(root / "full");
    const std::string in = root.with_file("d/in", "x");
    const std::string kept = root.with_file("full/kept", "y");
    const std::string file = root.with_file("f", "z");
    const auto refused = [this](const char* from, const char* to) {
        EXPECT_FALSE(kestin_rename_safe((root / from).c_str(), (root / to).c_str()))
            << from << " -> " << to;
    };
    refused("none", "f");
    refused("d", "d/below");
    refused("d", "d/in");
    refused("d", "full");
    refused("f", "full");
    refused("f", "none/f");
    refused("d", "f/below");
    refused("d", "f/");
    EXPECT_EQ(bytes_of(in) + bytes_of(kept) + bytes_of(file), "xyz");
}

TEST_F(RemoveTreeTest, LinksAreRemovedAndNeverFollowed) {
    fs::create_directories(root / "outside");
    const std::string kept = root.with_file("outside/kept", "x");
    fs::create_directories(root / "tree/sub/empty");
    root.with_file("tree/sub/f", "x");
    fs::create_symlink(root / "outside", root / "tree/sub/link");
    fs::create_symlink(root / "outside", root / "link");
    fs::create_symlink("..", root / "tree/up");
    ASSERT_EQ(::mkfifo((root / "tree/pipe").c_str(), 0600), 0);
    kestin_remove_directory_recursive(root / "tree");
    kestin_remove_directory_recursive(root / "link/");
    kestin_remove_directory_recursive(root / "none");
    EXPECT_FALSE(kestin_access_safe((root / "tree").c_str()));
    EXPECT_FALSE(kestin_access_safe((root / "link").c_str()));
    EXPECT_EQ(bytes_of(kept), "x");
}

TEST_F(RemoveTreeTest, DeepTreesGoWithFewDescriptors) {
    const std::string name(200, 'n');
    const int before = ::open(root.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int folder = ::dup(before);
    for (int level = 0; level < 1000; ++level) {
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0700), 0);
        const int below = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = below;
        ::close(::openat(folder, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    ::close(folder);
    rlimit usual{};
    ::getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit few{static_cast<rlim_t>(before) + 8, usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    kestin_remove_directory_recursive(root / name);
    ::setrlimit(RLIMIT_NOFILE, &usual);
    ::close(before);
    EXPECT_TRUE(fs::is_empty(root.path()));
}

TEST_F(RemoveTreeTest, WideTreesGoToo) {
    fs::create_directory(root / "wide");
    const int folder = ::open((root / "wide").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int number = 0; number < 10'000; ++number) {
        const std::string name = std::to_string(number);
        if (number % 20 == 0) {
            ::mkdirat(folder, name.c_str(), 0700);
        } else {
            ::close(::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
    }
    ::close(folder);
    kestin_remove_directory_recursive(root / "wide");
    EXPECT_FALSE(fs::exists(root / "wide"));
}

TEST_F(RemoveTreeTest, ReadOnlyFoldersGetTheirOwnersPermission) {
    ASSERT_EQ(::chmod(root.path().c_str(), 0777), 0);
    const std::string tree = root / "tree";
    EXPECT_TRUE(holds_without_privilege([&] {
        fs::create_directories(tree + "/closed/below");
        root.with_file("tree/closed/below/f", "x");
        ::chmod((tree + "/closed/below").c_str(), 0500);
        ::chmod((tree + "/closed").c_str(), 0);
        ::chmod(tree.c_str(), 0500);
        kestin_remove_directory_recursive(tree);
        return !fs::exists(tree);
    }));
}

TEST_F(RemoveTreeTest, WhatCanNotBeRemovedStaysAndTheRestGoes) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs a folder of another user";
    }
    const std::string tree = root / "tree";
    fs::create_directories(tree + "/theirs");
    root.with_file("tree/theirs/kept", "x");
    root.with_file("tree/f", "x");
    for (const std::string& path : {root.path(), tree}) {
        ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    }
    EXPECT_TRUE(holds_without_privilege([&] {
        kestin_remove_directory_recursive(tree);
        return fs::exists(tree + "/theirs/kept") && !fs::exists(tree + "/f");
    }));
}

TEST_F(DirectoryTest, EntriesComeWithWhatIsKnownOfThem) {
    fs::create_directory(root / "folder");
    ASSERT_TRUE(file_set_time(root.with_file("f", "12345").c_str(), -7));
    fs::create_symlink(root / "folder", root / "link");
    fs::create_symlink(root / "none", root / "dangling");
    std::map<std::string, std::string> entries;
    Directory directory;
    EXPECT_FALSE(directory.read());
    ASSERT_TRUE(directory.open((root.path() + "/").c_str()));
    while (directory.read()) {
        EXPECT_EQ(directory.sub_path_name(), root / directory.sub_path_short_name());
        entries[directory.sub_path_short_name()] =
            directory.sub_path_is_directory() ? "folder"
                                              : std::to_string(directory.sub_path_size()) + " " +
                                                    std::to_string(directory.sub_path_time());
    }
    EXPECT_FALSE(directory.read());
    const std::map<std::string, std::string> expected{
        {"f", "5 -7"}, {"folder", "folder"}, {"link", "folder"}, {"dangling", "0 0"}};
    EXPECT_EQ(entries, expected);
    directory.close();
    directory.close();
    EXPECT_FALSE(directory.read());
    EXPECT_FALSE(directory.open((root / "f").c_str()));
    EXPECT_FALSE(directory.open((root / "none").c_str()));
}
