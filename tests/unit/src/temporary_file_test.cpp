#include "src/tcp_event/temporary_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "kestin_base/file_system.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"

namespace {

using Opening = TemporaryFile::Opening;

constexpr std::int64_t time = 1000;
constexpr std::int64_t size = 4 << 20;
const std::string mebibyte(1 << 20, 'x');

class TemporaryFileTest : public testing::Test {
  protected:
    std::unique_ptr<TemporaryFile> at(const std::string& name, const WritePolicy& policy = {}) {
        return std::make_unique<TemporaryFile>(UploadClaim{}, folder_.path() + name, policy);
    }

    static bool write(TemporaryFile& file, const std::string& bytes) {
        const TemporaryFile::Block block(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                         bytes.size());
        return file.write({&block, 1}) == 1;
    }

    // As a process that is killed leaves it: with some MiB, and without a stamp.
    void leave_unfinished(const WritePolicy& policy, int mebibytes) {
        const auto file = at("f", policy);
        ASSERT_EQ(file->open(), Opening::ready);
        file->begin(size, time);
        for (int count = 0; count < mebibytes; ++count) {
            ASSERT_TRUE(write(*file, mebibyte));
        }
    }

    Kestin::Base::PathFacts look() const {
        return Kestin::Base::kestin_look_at((folder_.path() + "f").c_str());
    }

    support::TemporaryFolder folder_;
};

TEST_F(TemporaryFileTest, HasOneHolderWhateverItsName) {
    auto first = at("f");
    ASSERT_EQ(first->open(), Opening::ready);
    EXPECT_TRUE(first->is_new());
    first->begin(size, time);
    ASSERT_TRUE(write(*first, "abc"));
    std::filesystem::create_hard_link(folder_.path() + "f", folder_.path() + "g");
    EXPECT_EQ(at("f")->open(), Opening::in_use);
    EXPECT_EQ(at("g")->open_existing(), Opening::in_use);
    EXPECT_TRUE(first->settle());
    first.reset();
    const auto second = at("g");
    ASSERT_EQ(second->open(), Opening::ready);
    EXPECT_FALSE(second->is_new());
    EXPECT_EQ(second->look().time, time);
    EXPECT_EQ(second->begin(size, time), 3);
}

TEST_F(TemporaryFileTest, TellsWhatElseStandsThere) {
    EXPECT_EQ(at("missing/f")->open(), Opening::missing);
    EXPECT_EQ(at("f")->open_existing(), Opening::missing);
    std::filesystem::create_directory(folder_.path() + "folder");
    std::filesystem::create_symlink("elsewhere", folder_.path() + "link");
    ASSERT_EQ(::mkfifo((folder_.path() + "pipe").c_str(), 0600), 0);
    for (const char* name : {"folder", "link", "pipe"}) {
        EXPECT_EQ(at(name)->open(), Opening::obstacle) << name;
    }
}

TEST_F(TemporaryFileTest, IsInPlaceOnlyAsItWasWritten) {
    const auto file = at("f");
    ASSERT_EQ(file->open(), Opening::ready);
    file->begin(3, time);
    ASSERT_TRUE(write(*file, "abc"));
    EXPECT_TRUE(file->is_in_place());
    std::filesystem::resize_file(folder_.path() + "f", 2);
    EXPECT_FALSE(file->is_in_place());
    std::filesystem::resize_file(folder_.path() + "f", 3);
    std::filesystem::rename(folder_.path() + "f", folder_.path() + "g");
    EXPECT_FALSE(file->is_in_place());
    support::write_file(folder_.path() + "f", "abc");
    EXPECT_FALSE(file->is_in_place());
}

TEST_F(TemporaryFileTest, ReturnsToItsLastCheckpoint) {
    const WritePolicy policy{.is_durable = false, .checkpoint_size = 2 << 20};
    leave_unfinished(policy, 3);
    EXPECT_NE(look().time, time);
    {
        const auto file = at("f", policy);
        ASSERT_EQ(file->open(), Opening::ready);
        EXPECT_EQ(file->look().time, time);
        EXPECT_EQ(file->begin(size, time), 2 << 20);
        ASSERT_TRUE(write(*file, mebibyte));
        EXPECT_TRUE(file->settle());
    }
    // The stamp has taken the note's place.
    EXPECT_EQ(at("f", policy)->open(), Opening::ready);
    EXPECT_EQ(look().size, 3 << 20);
    EXPECT_EQ(look().time, time);
}

TEST_F(TemporaryFileTest, HasNoCheckpointsUnlessAskedFor) {
    leave_unfinished({}, 3);
    EXPECT_EQ(at("f", {.checkpoint_size = 1 << 20})->open(), Opening::ready);
    EXPECT_EQ(look().size, 3 << 20);
    EXPECT_NE(look().time, time);
}

TEST_F(TemporaryFileTest, ASpoiltFileBearsAnotherTimeThanTheAnnouncedOne) {
    for (const std::int64_t announced : {time, std::int64_t{0}}) {
        const auto file = at("f");
        ASSERT_EQ(file->open(), Opening::ready);
        file->begin(size, announced);
        ASSERT_TRUE(file->settle());
        EXPECT_TRUE(file->is_stamped());
        EXPECT_EQ(look().time, announced);
        file->spoil();
        EXPECT_FALSE(file->is_stamped());
        EXPECT_NE(look().time, announced);
    }
}

}  // namespace
