#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <vector>

#include "kestin_base/byte_stream.h"
#include "kestin_base/clock.h"
#include "kestin_base/path.h"
#include "kestin_base/strings.h"
#include "tests/unit/kestin_base/temporary_folder.h"

using namespace Kestin::Base;

namespace {

std::vector<std::string> pieces_of(const std::string& text, const std::string& trim) {
    StringSplitter splitter(text, trim, "\\/");
    std::vector<std::string> pieces;
    while (!splitter.eof()) {
        splitter >> pieces.emplace_back();
    }
    return pieces;
}

std::string folder_of(const char* path) {
    std::string directory = "untouched";
    return kestin_extract_directory(path, directory, true) ? directory : "none, " + directory;
}

std::string absolute(const std::string& path) {
    std::string out;
    EXPECT_TRUE(kestin_absolute_pathname_format_strictly(path, out, true));
    return out;
}

// Puts the working directory back.
class WorkingDirectory {
  public:
    WorkingDirectory() : before_(std::filesystem::current_path()) {}
    ~WorkingDirectory() { std::filesystem::current_path(before_); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

  private:
    std::filesystem::path before_;
};

class ZoneTest : public testing::Test {
  protected:
    ~ZoneTest() override { set("UTC"); }
    static void set(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

}  // namespace

TEST(SnprintfTest, WideNumbersArePrintedInFull) {
    std::array<char, 64> buffer{};
    const auto length = kestin_snprintf(buffer.data(), buffer.size(), "%I64u|%I64d|%d|%u|%s",
                                        std::uint64_t{1} << 40U,
                                        std::numeric_limits<std::int64_t>::min(), -1, 2U, "%I64u");
    EXPECT_STREQ(buffer.data(), "1099511627776|-9223372036854775808|-1|2|%I64u");
    EXPECT_EQ(length, std::strlen(buffer.data()));
}

TEST(SnprintfTest, StaysWithinTheBuffer) {
    std::array<char, 8> buffer{'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(kestin_snprintf(buffer.data(), 4, "%s", "abcdef"), 3U);
    EXPECT_STREQ(buffer.data(), "abc");
    EXPECT_EQ(buffer[4], 'x');
    EXPECT_EQ(kestin_snprintf(buffer.data(), 0, "%s", "abcdef"), 0U);
    EXPECT_EQ(buffer[0], 'a');
}

TEST(StringsTest, BlanksGoFromBothEndsOnly) {
    const std::array<std::array<const char*, 2>, 5> table{{{" \t\v\r\n\fa b \f", "a b"},
                                                           {"   ", ""},
                                                           {"", ""},
                                                           {"a", "a"},
                                                           {"\xC2\xA0", "\xC2\xA0"}}};
    for (const auto& [text, expected] : table) {
        std::string trimmed = text;
        kestin_string_trim(trimmed, blank_characters);
        EXPECT_EQ(trimmed, expected);
    }
}

TEST(StringsTest, EveryDelimiterEndsAPiece) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(pieces_of("", ""), Pieces({""}));
    EXPECT_EQ(pieces_of("a", ""), Pieces({"a"}));
    EXPECT_EQ(pieces_of("/a\\b//", ""), Pieces({"", "a", "b", "", ""}));
    EXPECT_EQ(pieces_of(" a / b", ""), Pieces({" a ", " b"}));
    EXPECT_EQ(pieces_of(" a / b", " "), Pieces({"a", "b"}));
}

TEST(PathTest, TheFolderPartOfAFile) {
    const std::array<std::array<const char*, 2>, 9> table{
        {{"/srv/transmit/server", "/srv/transmit"},
         {"./server", "."},
         {"a/b", "a"},
         {"a//b", "a"},
         {"server", "."},
         {"/server", "/"},
         {"//server", "/"},
         {"a/", "a"},
         {"", "none, untouched"}}};
    for (const auto& [path, folder] : table) {
        EXPECT_EQ(folder_of(path), folder) << path;
    }
}

TEST(PathTest, OneFormForEachPath) {
    const WorkingDirectory restored;
    std::filesystem::current_path("/usr/bin");
    const std::array<std::array<const char*, 2>, 17> table{{{"/", "/"},
                                                            {"//", "/"},
                                                            {"/..", "/"},
                                                            {"/../..//a", "/a"},
                                                            {"/a/b", "/a/b"},
                                                            {"/a//b///", "/a/b"},
                                                            {"/a/./b/.", "/a/b"},
                                                            {"/a/b/..", "/a"},
                                                            {"/a/b/../../c", "/c"},
                                                            {"/a/..b/...", "/a/..b/..."},
                                                            {"/a\\b", "/a\\b"},
                                                            {"/ ", "/ "},
                                                            {"", "/usr/bin"},
                                                            {".", "/usr/bin"},
                                                            {"a/b/", "/usr/bin/a/b"},
                                                            {"../x", "/usr/x"},
                                                            {"../../../x", "/x"}}};
    for (const auto& [path, expected] : table) {
        EXPECT_EQ(absolute(path), expected) << path;
    }
}

TEST(PathTest, TheWorkingDirectoryEndsInASeparator) {
    const WorkingDirectory restored;
    const TemporaryFolder folder;
    std::string directory;
    ASSERT_TRUE(kestin_set_current_work_directory(folder.path()));
    ASSERT_TRUE(kestin_get_current_work_directory(directory));
    EXPECT_EQ(directory, std::filesystem::canonical(folder.path()).native() + "/");
    ASSERT_TRUE(kestin_set_current_work_directory("/"));
    ASSERT_TRUE(kestin_get_current_work_directory(directory));
    EXPECT_EQ(directory, "/");
    EXPECT_FALSE(kestin_set_current_work_directory(folder / "none"));

    std::filesystem::create_directory(folder / "gone");
    std::filesystem::current_path(folder / "gone");
    std::filesystem::remove(folder / "gone");
    std::string out = "x";
    EXPECT_FALSE(kestin_absolute_pathname_format_strictly("a", out, true));
    EXPECT_EQ(out, "");
    EXPECT_EQ(absolute("/a/"), "/a");
}

TEST_F(ZoneTest, DatesAreLocalAndZeroPadded) {
    set("UTC");
    const auto text = [](std::uint64_t time) {
        return kestin_get_datetime(kestin_make_localtime(time), "-", ":", " ");
    };
    EXPECT_EQ(text(1709634153), "2024-03-05 10:22:33");
    EXPECT_EQ(text(0), "1970-01-01 00:00:00");
    EXPECT_EQ(text(0x1'0000'0000), "2106-02-07 06:28:16");
    set("XXX-5:30");
    EXPECT_EQ(text(1709634153), "2024-03-05 15:52:33");
    EXPECT_EQ(kestin_get_datetime(kestin_make_localtime(0), "/", ".", "T"), "1970/01/01T05.30.00");
}

TEST(ClockTest, BothClocksTellTheTime) {
    const auto seconds = static_cast<std::int64_t>(kestin_time());
    EXPECT_LE(std::abs(seconds - std::int64_t{::time(nullptr)}), 1);
    EXPECT_LE(std::abs(seconds - std::int64_t{kestin_gettimeofday().tv_sec}), 1);
}

TEST(ByteStreamTest, WireOrderIsMostSignificantByteFirst) {
    const auto wire_bytes = [](auto value) {
        std::string bytes(sizeof value + 1, '\0');  // an odd address too
        std::memcpy(&bytes[1], &value, sizeof value);
        ByteStream::host_to_net(&bytes[1], sizeof value);
        const std::string wire = bytes.substr(1);
        ByteStream::net_to_host(&bytes[1], sizeof value);
        EXPECT_EQ(std::memcmp(&bytes[1], &value, sizeof value), 0);
        return wire;
    };
    EXPECT_EQ(wire_bytes(std::uint8_t{1}), "\x01");
    EXPECT_EQ(wire_bytes(std::uint16_t{0x0102}), "\x01\x02");
    EXPECT_EQ(wire_bytes(std::uint32_t{0x01020304}), "\x01\x02\x03\x04");
    EXPECT_EQ(wire_bytes(std::uint64_t{0x0102030405060708}), "\x01\x02\x03\x04\x05\x06\x07\x08");
}
