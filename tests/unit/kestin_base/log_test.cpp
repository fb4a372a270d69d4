#include "kestin_base/log.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <thread>
#include <vector>

#include "kestin_base/detail/line_file.h"
#include "kestin_base/record.h"
#include "tests/unit/kestin_base/temporary_folder.h"

using Kestin::Base::LogSwitch;
using Kestin::Base::Record;
using Kestin::Base::detail::LineFile;

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
    log("a\nb\r\t\x1b[2J\x7f caf\xc3\xa9");
    EXPECT_TRUE(run_log().ends_with(" a\\x0Ab\\x0D\\x09\\x1B[2J\\x7F caf\xc3\xa9\n"));
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
    const std::vector<std::string> faulty{
        "",
        run,
        run + debug + "nonsense\n",
        run + debug + "colour=red\n",
        run + debug + "count=2\n",
        run + debug + "[other]\nlevel=1\n",
        run + "[debug]\nfile=log/d.log\nlevel=5\nsize=1\ncount=2\n",
        run + "[debug]\nfile=log/d.log\nlevel=-1\nsize=1\ncount=2\n",
        run + "[debug]\nfile=log/d.log\nlevel=3\nsize=0\ncount=2\n",
        run + "[debug]\nfile=log/d.log\nlevel=3\nsize=1MB\ncount=2\n",
        run + "[debug]\nfile=\nlevel=3\nsize=1\ncount=2\n",
        run + section("debug", "cfg"),
        run + section("debug", "cfg/log.ini/d.log"),
    };
    for (const std::string& settings : faulty) {
        EXPECT_FALSE(start(settings)) << settings;
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
        log(message.c_str());
    }
    for (const char* kept : {"run.log", "run.1.log", "run.2.log"}) {
        EXPECT_LE(std::filesystem::file_size(root / (std::string("log/") + kept)), 1U << 20U)
            << kept;
    }
    EXPECT_FALSE(std::filesystem::exists(root / "log/run.3.log"));
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
                    log(message.c_str());
                }
            });
        }
    }
    std::istringstream lines(run_log());
    const std::regex whole(std::string(stamp) + "   Error src/x X::y 7 m{300}");
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_TRUE(std::regex_match(line, whole)) << line;
    }
    EXPECT_EQ(count, 1000);
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
