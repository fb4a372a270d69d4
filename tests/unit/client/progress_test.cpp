#include "client/cli/progress.h"

#include <gtest/gtest.h>

#include "client/cli/progress_view.h"
#include "client/cli/text.h"

namespace {

using namespace transmit::cli;
using namespace std::chrono_literals;

constexpr std::int64_t mib = 1024 * 1024;
const Clock::time_point start = Clock::now();

BatchProgress batch_of(std::size_t files) {
    std::vector<BatchFile> list;
    for (std::size_t file = 0; file < files; ++file) {
        list.push_back({"folder/file" + std::to_string(file), 10 * mib});
    }
    return BatchProgress(list, start);
}

TEST(SpeedWindow, CountsTheLastTenSecondsOnly) {
    SpeedWindow speed(start);
    EXPECT_EQ(speed.bytes_per_second(start), 0);
    for (int second = 1; second <= 20; ++second) {
        speed.add(1000, start + second * 1s);
    }
    EXPECT_NEAR(speed.bytes_per_second(start + 20s), 1000, 1);
    EXPECT_NEAR(speed.bytes_per_second(start + 25s), 500, 1);
    EXPECT_EQ(speed.bytes_per_second(start + 40s), 0);
}

TEST(Progress, WhatWasThereBeforeAndWhatIsSentTwiceIsNoSpeed) {
    BatchProgress progress = batch_of(1);
    progress.start(0, start);
    progress.advance(0, 6 * mib, 10 * mib, 6 * mib, start);
    progress.advance(0, 8 * mib, 10 * mib, 6 * mib, start + 1s);
    EXPECT_NEAR(progress.bytes_per_second(start + 2s), 1.0 * mib, 1);
    progress.advance(0, 7 * mib, 10 * mib, 6 * mib, start + 2s);
    EXPECT_NEAR(progress.bytes_per_second(start + 2s), 1.0 * mib, 1);
    EXPECT_EQ(progress_line(progress, start + 2s),
              "folder/file0, 70 % of 10.0 MiB, 1.0 MiB/s, 0:04 left");
}

TEST(Progress, CountsFilesThatEndAndForgetsTheSizeOfThoseThatFail) {
    BatchProgress progress = batch_of(4);
    for (std::size_t file = 0; file < 3; ++file) {
        progress.start(file, start);
    }
    progress.finish(0, 12 * mib);
    progress.fail(1);
    progress.advance(2, 5 * mib, 10 * mib, 0, start);
    EXPECT_EQ(progress.total(), 32 * mib);
    EXPECT_EQ(progress.done(), 17 * mib);
    EXPECT_EQ(progress_line(progress, start), "1 of 4 files, 1 failed, 53 % of 32.0 MiB, 0 B/s");
}

TEST(Bars, ThreeFilesAndATotal) {
    BatchProgress progress = batch_of(5);
    for (std::size_t file = 0; file < 4; ++file) {
        progress.start(file, start);
        progress.advance(file, static_cast<std::int64_t>(file + 1) * mib, 10 * mib, 0, start + 1s);
    }
    const auto lines = progress_bars(progress, start + 1s, 79);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].text,
              "folder/file0       [=>            ]   10 % of 10.0 MiB     1.0 MiB/s  0:10 left");
    EXPECT_TRUE(lines[3].text.starts_with("0 of 5 files")) << lines[3].text;
    EXPECT_NE(lines[3].text.find("20 % of 50.0 MiB    10.0 MiB/s  0:05 left"), std::string::npos)
        << lines[3].text;
    EXPECT_TRUE(progress_bars(batch_of(1), start, 79).front().text.starts_with("folder/file0"));
}

TEST(Bars, TellWhatStandsInTheWay) {
    const std::string reason = "another client uploads this file";
    EXPECT_EQ(hindrance_text({reason, {}, start + 4s, start + 120s}, start),
              "another client uploads this file; trying again in 4 s (2:00 left)");
    EXPECT_EQ(hindrance_text({"stalled", start, {}, {}}, start + 31s), "stalled for 0:31");
    BatchProgress progress = batch_of(1);
    progress.start(0, start);
    progress.hinder(0, {reason, {}, start + 4s, {}}, start);
    EXPECT_EQ(progress_bars(progress, start, 79).front().text,
              "folder/file0: another client uploads this file; trying again in 4 s");
    progress.advance(0, mib, 10 * mib, 0, start);
    EXPECT_NE(progress_bars(progress, start, 79).front().text.find("10 %"), std::string::npos);
}

TEST(Bars, FitAnyTerminalAndStayOneLine) {
    BatchProgress progress({{"\u4E2D\u6587\x1B[2J\n" + std::string(300, 'x'), 9 * mib}, {"b", {}}},
                           start);
    progress.start(0, start);
    progress.start(1, start);
    progress.advance(0, 3 * mib, 9 * mib, 0, start + 1s);
    progress.hinder(1, {std::string(200, '?'), {}, start + 9s, start + 99s}, start);
    for (std::size_t width = 1; width < 250; ++width) {
        for (const auto& [line, hindered] : progress_bars(progress, start + 1s, width)) {
            EXPECT_LE(columns(line), width) << line;
            EXPECT_EQ(line, shown(line));
        }
    }
}

}  // namespace
