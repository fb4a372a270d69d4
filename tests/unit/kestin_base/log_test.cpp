#include "kestin_base/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <regex>
#include <semaphore>
#include <thread>
#include <utility>
#include <vector>

#include "kestin_base/detail/descriptor.h"
#include "kestin_base/detail/line_file.h"
#include "kestin_base/detail/log_text.h"
#include "kestin_base/detail/repeat_limit.h"
#include "kestin_base/record.h"
#include "tests/unit/kestin_base/temporary_folder.h"

using Kestin::Base::LogSwitch;
using Kestin::Base::Record;
using Kestin::Base::detail::LineFile;
using Kestin::Base::detail::LineKind;
using Kestin::Base::detail::LogName;
using Kestin::Base::detail::RepeatLimit;

namespace {

constexpr std::uint64_t wide = 0x1'0000'0002;  // the low half alone would print as 2

std::string section(const std::string& name, const std::string& file) {
    return "[" + name + "]\nfile=" + file + "\nlevel=3\nsize=1\ncount=2\n";
}

class LogTest : public testing::Test {
  protected:
    ~LogTest() override {
        LogSwitch::instance().exit();
        Record::instance().exit();
    }

    bool start(const std::string& settings) {
        std::filesystem::create_directory(root / "cfg");
        return LogSwitch::instance().init(root.with_file("cfg/log.ini", settings).c_str());
    }
    bool start() { return start(section("run", "log/run.log") + section("debug", "log/d.log")); }

    std::string run_log() const { return bytes_of(root / "log/run.log"); }

    std::string debug_log() const { return bytes_of(root / "log/d.log"); }

    static void log(const char* text) {
        kestin_run_log(KESTIN_LOG_ERROR, "src/x", "X::y", 7, "%s", text);
    }

    TemporaryFolder root;
};

// Looks for its file before each line.
class LineFileTest : public testing::Test {
  protected:
    bool open() { return file.open({.path = path, .size = 1 << 20, .count = 1, .look_pause = {}}); }
    std::string lines() const { return bytes_of(path); }

    TemporaryFolder root;
    const std::string path = root / "log/x.log";
    LineFile file;
};

LineKind line_of(std::uint64_t session) {
    return {
        .level = KESTIN_LOG_ERROR,
        .origin = {.file = "f", .class_name = "C", .function = "g", .line = 1, .session = session},
        .format = "%s"};
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

constexpr const char* stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";

}  // namespace

TEST_F(LogTest, ALineShowsTimeLevelPlaceAndMessage) {
    ASSERT_TRUE(start());
    kestin_run_log(KESTIN_LOG_WARNING, "src/x", "X::y", 57, "[%I64u] %s %d %u %I64d", wide, "text",
                   -1, 2U, -std::int64_t{wide});
    const std::regex line(std::string(stamp) +
                          R"( Warning src/x X::y 57 \[4294967298\] text -1 2 -4294967298\n)");
    EXPECT_TRUE(std::regex_match(run_log(), line)) << run_log();
}

TEST_F(LogTest, LevelsAreLabelledAndFilteredForEachLog) {
    ASSERT_TRUE(start(section("run", "log/run.log") + section("debug", "log/d.log")));
    for (const auto level : {KESTIN_LOG_CRITICAL, KESTIN_LOG_ERROR, KESTIN_LOG_WARNING,
                             KESTIN_LOG_DEBUG, KESTIN_LOG_TRACK}) {
        kestin_debug_log(level, "f", "g", 1, "m");
    }
    const std::string text = bytes_of(root / "log/d.log");
    const std::regex lines(std::string(stamp) + "Critical f g 1 m\n" + stamp +
                           "   Error f g 1 m\n" + stamp + " Warning f g 1 m\n" + stamp +
                           "   Debug f g 1 m\n");
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
    EXPECT_EQ(run_log(), "");
}

TEST_F(LogTest, TextOfAClientCanNotForgeALine) {
    ASSERT_TRUE(start());
    const std::pair<const char*, const char*> texts[] = {
        {"a\nb\r\t\x1b[2J\x7f", "a\\x0Ab\\x0D\\x09\\x1B[2J\\x7F"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"caf\xe9 \xa9", "caf\\xE9 \\xA9"},
        {"control \xc2\x85\xc2\x9b", "control \\xC2\\x85\\xC2\\x9B"},
        {"overlong \xc0\x8a \xe0\x80\x8a", "overlong \\xC0\\x8A \\xE0\\x80\\x8A"},
        {"surrogate \xed\xa0\x80", "surrogate \\xED\\xA0\\x80"},
        {"no code \xf4\x90\x80\x80 \xff", "no code \\xF4\\x90\\x80\\x80 \\xFF"},
        {"short \xe2\x82", "short \\xE2\\x82"},
    };
    for (const auto& [text, shown] : texts) {
        kestin_debug_log(KESTIN_LOG_DEBUG, "f", "g", 1, "%s", text);
        EXPECT_TRUE(debug_log().ends_with(" f g 1 " + std::string(shown) + "\n")) << debug_log();
    }
}

TEST_F(LogTest, ALongMessageIsCutVisibly) {
    ASSERT_TRUE(start());
    log(std::string(65536, 'p').c_str());
    EXPECT_TRUE(run_log().ends_with(" " + std::string(Kestin::Base::detail::max_message_size, 'p') +
                                    " ... (cut, 65536 bytes)\n"));
}

TEST_F(LogTest, FaultySettingsAreRefused) {
    const std::string run = section("run", "log/run.log");
    const std::string debug = section("debug", "log/d.log");
    const std::string at = root / "cfg/log.ini";
    const std::string range = "the value must be a number from ";
    // The settings, and why they are refused.
    const std::vector<std::pair<std::string, std::string>> faulty{
        {"", at + ": [run] lacks the setting file"},
        {run, at + ": [debug] lacks the setting file"},
        {run + debug + "nonsense\n", ": this is neither a section nor a setting"},
        {run + debug + "colour=red\n", ": colour = red: the setting is unknown"},
        {run + debug + "count=2\n", ": count = 2: the setting is given twice"},
        {run + debug + "[other]\nlevel=1\n", ": level = 1: the section is unknown"},
        {"[run]\nlevel=5\n" + debug, at + ":2: level = 5: " + range + "0 to 4"},
        {"[run]\n\nlevel=-1\n", at + ":3: level = -1: " + range + "0 to 4"},
        {run + "[debug]\nsize=0\n", ": size = 0: " + range + "1 to 1048576"},
        {run + "[debug]\nsize=1MB\n", ": size = 1MB: " + range + "1 to 1048576"},
        {run + "[debug]\nfile=\n", ": file = : the value is empty"},
        {run + section("debug", "cfg"), root / "cfg: Is a directory"},
        {run + section("debug", "cfg/log.ini/d.log"), at + "/d.log: Not a directory"},
    };
    for (const auto& [settings, reason] : faulty) {
        EXPECT_FALSE(start(settings)) << settings;
        EXPECT_NE(LogSwitch::instance().failure().find(reason), std::string::npos)
            << LogSwitch::instance().failure();
        log("lost");
    }
    EXPECT_FALSE(LogSwitch::instance().init((root / "cfg/none.ini").c_str()));
    EXPECT_EQ(run_log(), "");
    EXPECT_TRUE(start("\xEF\xBB\xBF; comment\n" + run + debug));
}

TEST_F(LogTest, LinesOutsideInitAndExitAreNoFault) {
    log("before");
    ASSERT_TRUE(start());
    log("between");
    LogSwitch::instance().exit();
    LogSwitch::instance().exit();
    log("after");
    ASSERT_TRUE(start());
    log("again");
    EXPECT_EQ(run_log().find("before"), std::string::npos);
    EXPECT_NE(run_log().find("between"), std::string::npos);
    EXPECT_EQ(run_log().find("after"), std::string::npos);
    EXPECT_NE(run_log().find("again"), std::string::npos);
}

TEST_F(LineFileTest, AFileThatIsMovedDeletedOrTruncatedIsStartedAgain) {
    ASSERT_TRUE(open());
    file.write("one");
    std::filesystem::rename(path, root / "kept");
    root.with_file("log/x.log", "");  // as programs that rotate logs leave it
    file.write("two");
    EXPECT_NE(bytes_of(root / "kept").find("one"), std::string::npos);
    EXPECT_EQ(bytes_of(root / "kept").find("two"), std::string::npos);
    EXPECT_NE(lines().find("two"), std::string::npos);

    std::filesystem::remove_all(root / "log");
    file.write("three");
    EXPECT_NE(lines().find("three"), std::string::npos);

    std::filesystem::resize_file(path, 0);
    file.write("four");
    EXPECT_TRUE(std::regex_match(lines(), std::regex(std::string(stamp) + "four\n")));
}

// As by a program that copies a log and then truncates it.
TEST_F(LineFileTest, ATruncatedFileIsNotTakenForAFullOne) {
    ASSERT_TRUE(open());
    const std::string line(1000, 'l');
    for (int round = 0; round < 3; ++round) {
        for (int count = 0; count < 900; ++count) {
            file.write(line);
        }
        EXPECT_GT(lines().size(), 900'000U);
        EXPECT_EQ(lines().find('\0'), std::string::npos);
        std::filesystem::resize_file(path, 0);
    }
    EXPECT_FALSE(std::filesystem::exists(root / "log/x.1.log"));
}

// A pipe that nobody empties stands for a disk that hangs.
TEST_F(LineFileTest, AHungDiskHoldsOneWriterAndTheLossIsTold) {
    std::filesystem::create_directory(root / "log");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const Kestin::Base::detail::Descriptor pipe(::open(path.c_str(), O_RDONLY | O_NONBLOCK));
    ASSERT_TRUE(open());

    constexpr int lines_of_each = 200;  // two writers' lines are more than a pipe holds
    std::counting_semaphore<> done(0);
    const auto write_all = [&] {
        for (int line = 0; line < lines_of_each; ++line) {
            file.write(std::string(1000, 'l'));
        }
        done.release();
    };
    std::jthread one(write_all);
    std::jthread other(write_all);
    EXPECT_TRUE(done.try_acquire_for(std::chrono::minutes(1)));
    EXPECT_FALSE(done.try_acquire()) << "nothing hung";

    std::string text;
    const auto empty_pipe = [&] {
        std::array<char, 4096> bytes{};
        const ssize_t count = ::read(pipe.number(), bytes.data(), bytes.size());
        text.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    };
    while (!done.try_acquire()) {
        empty_pipe();
    }
    file.write("the last one");
    while (!text.ends_with("the last one\n")) {
        empty_pipe();
    }
    const auto written = std::count(text.begin(), text.end(), '\n') - 2;
    const auto lost = 2 * lines_of_each - written;
    EXPECT_GT(lost, 0);
    EXPECT_NE(text.find(' ' + std::to_string(lost) + " lines are missing here\n"),
              std::string::npos)
        << lost;
}

TEST_F(LineFileTest, AFolderThatBecomesUnusableStopsNothing) {
    ASSERT_TRUE(open());
    std::filesystem::remove_all(root / "log");
    root.with_file("log", "a file in place of the folder");
    for (int line = 0; line < 1000; ++line) {
        file.write("lost");
    }
}

TEST_F(LogTest, FullFilesAreKeptUpToTheCount) {
    ASSERT_TRUE(start());
    const std::string message(8000, 'x');
    for (int line = 0; line < 4 * 140; ++line) {
        kestin_debug_log(KESTIN_LOG_DEBUG, "f", "g", 1, "%s", message.c_str());
    }
    for (const char* kept : {"d.log", "d.1.log", "d.2.log"}) {
        EXPECT_LE(std::filesystem::file_size(root / (std::string("log/") + kept)), 1U << 20U)
            << kept;
    }
    EXPECT_FALSE(std::filesystem::exists(root / "log/d.3.log"));
}

TEST_F(LogTest, AFullDiskLosesLinesAndNothingElse) {
    ASSERT_TRUE(start(section("run", "/dev/full") + section("debug", "log/d.log")));
    for (int line = 0; line < 1000; ++line) {
        log("lost");
    }
    kestin_debug_log(KESTIN_LOG_DEBUG, "f", "g", 1, "kept");
    EXPECT_NE(bytes_of(root / "log/d.log").find("kept"), std::string::npos);
}

TEST_F(LogTest, LinesOfManyThreadsStayWhole) {
    ASSERT_TRUE(start());
    const std::string message(300, 'm');
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&message] {
                for (int line = 0; line < 250; ++line) {
                    kestin_debug_log(KESTIN_LOG_DEBUG, "src/x", "X::y", 7, "%s", message.c_str());
                }
            });
        }
    }
    std::istringstream lines(debug_log());
    const std::regex whole(std::string(stamp) + "   Debug src/x X::y 7 m{300}");
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_TRUE(std::regex_match(line, whole)) << line;
    }
    EXPECT_EQ(count, 1000);
}

TEST_F(LogTest, AFloodOfASessionIsCounted) {
    ASSERT_TRUE(start());
    const auto fail = [](std::uint64_t session, const char* format) {
        Kestin::Base::detail::write_log(
            LogName::run, KESTIN_LOG_ERROR,
            {.file = "f", .class_name = "C", .function = "g", .line = 1, .session = session},
            format, 1U);
    };
    for (int line = 0; line < 1000; ++line) {
        fail(7, "bad id %u");
    }
    fail(8, "bad id %u");
    fail(7, "bad type %u");
    LogSwitch::instance().exit();
    EXPECT_EQ(occurrences(run_log(), "   Error f C::g 1 [7] bad id 1\n"),
              RepeatLimit::of_session.lines);
    EXPECT_EQ(occurrences(run_log(), "   Error f C::g 1 [7] 995 more: bad id %u\n"), 1U);
    EXPECT_EQ(occurrences(run_log(), "[8] bad id 1\n"), 1U);
    EXPECT_EQ(occurrences(run_log(), "[7] bad type 1\n"), 1U);
}

// A client may open a session for each fault.
TEST(RepeatLimitTest, ManySessionsShareABudgetOfTheKind) {
    RepeatLimit limit;
    const auto now = RepeatLimit::Clock::now();
    std::uint64_t admitted = 0;
    for (std::uint64_t session = 1; session <= 5000; ++session) {
        admitted += limit.admits(line_of(session), 100, now) ? 1 : 0;
    }
    EXPECT_EQ(admitted, RepeatLimit::of_kind.lines);
    const auto ended = limit.take_ended(now + RepeatLimit::first_window);
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_TRUE(ended.front().of_all_sessions);
    EXPECT_EQ(ended.front().count, 5000 - admitted);
}

TEST(RepeatLimitTest, LongLinesUseABudgetUpSooner) {
    RepeatLimit limit;
    const auto now = RepeatLimit::Clock::now();
    EXPECT_TRUE(limit.admits(line_of(1), 8000, now));
    EXPECT_FALSE(limit.admits(line_of(1), 10, now));
}

TEST(RepeatLimitTest, AFloodThatGoesOnGetsLongerWindowsUntilItEnds) {
    RepeatLimit limit;
    auto now = RepeatLimit::Clock::now();
    std::uint64_t admitted = 0;
    std::uint64_t counted = 0;
    const auto take = [&] {
        for (const auto& held : limit.take_ended(now)) {
            EXPECT_FALSE(held.of_all_sessions);
            counted += held.count;
        }
    };
    constexpr std::uint64_t seconds = 3600;
    for (std::uint64_t second = 0; second < seconds; ++second) {
        take();
        for (int line = 0; line < 10; ++line) {
            admitted += limit.admits(line_of(1), 100, now) ? 1 : 0;
        }
        now += std::chrono::seconds(1);
    }
    EXPECT_LE(admitted, RepeatLimit::of_session.lines * (seconds / 16 + 5));
    now += RepeatLimit::longest_window;
    take();
    EXPECT_EQ(admitted + counted, 10 * seconds);
    now += RepeatLimit::longest_window;
    take();
    EXPECT_TRUE(limit.admits(line_of(1), 100, now));
    EXPECT_TRUE(limit.take_all().empty());
}

TEST_F(LogTest, ARecordIsOneLineAnUpload) {
    Record& record = Record::instance();
    kestin_record(record, true, "before init");
    ASSERT_TRUE(record.init(root.path() + "/"));
    kestin_record(record, true, "remote upload file (%s) success, size is %I64d", "a\nb",
                  std::int64_t{wide});
    kestin_record(record, false, "remote upload file (%s) failure, size unexpected: %I64d %s %I64d",
                  "c", std::int64_t{1}, "<", std::int64_t{2});
    record.exit();
    kestin_record(record, true, "after exit");
    const std::string text = bytes_of(root / "log/record.log");
    const std::regex lines(
        std::string(stamp) +
        "success remote upload file \\(a\\\\x0Ab\\) success, size is 4294967298\n" + stamp +
        "failure remote upload file \\(c\\) failure, size unexpected: 1 < 2\n");
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}

TEST_F(LogTest, ARecordThatCanNotBeOpenedIsRefused) {
    root.with_file("log", "a file in place of the folder");
    EXPECT_FALSE(Record::instance().init(root.path() + "/"));
    kestin_record(Record::instance(), true, "lost");
}
