#include <gtest/gtest.h>

#include <string>

#include "tests/support/child_process.h"

namespace {

// What readelf(1) of binutils, which every compiler brings, shows of a program.
class Hardening : public testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        if (!TRANSMIT_HARDEN) {
            GTEST_SKIP() << "built without TRANSMIT_HARDEN";
        }
    }

    static std::string shown_by(const std::string& option) {
        return support::output_of("/usr/bin/readelf", {"readelf", "--wide", option, GetParam()});
    }

    // The line that holds the text; empty if there is none.
    static std::string line_with(const std::string& text, const std::string& shown) {
        const std::size_t at = shown.find(text);
        const std::size_t begin = shown.rfind('\n', at) + 1;
        return at == std::string::npos ? "" : shown.substr(begin, shown.find('\n', at) - begin);
    }

    static bool has(const std::string& text, const std::string& shown) {
        return shown.find(text) != std::string::npos;
    }
};

TEST_P(Hardening, TheProgramIsLoadedAnywhereAndItsTablesAreReadOnly) {
    EXPECT_TRUE(has("DYN (Position-Independent Executable", shown_by("--file-header")));
    const std::string flags = line_with("(FLAGS_1)", shown_by("--dynamic"));
    EXPECT_TRUE(has("NOW", flags) && has("PIE", flags)) << flags;
    const std::string segments = shown_by("--program-headers");
    EXPECT_NE(line_with("GNU_RELRO", segments), "");
    const std::string stack = line_with("GNU_STACK", segments);
    EXPECT_TRUE(has(" RW ", stack)) << stack;
}

TEST_P(Hardening, OverrunsOfTheStackAndOfBuffersAreChecked) {
    const std::string symbols = shown_by("--dyn-syms");
    EXPECT_TRUE(has("__stack_chk_fail", symbols));
    EXPECT_TRUE(has("_chk@", symbols));
}

INSTANTIATE_TEST_SUITE_P(Programs, Hardening,
                         testing::Values(TRANSMIT_DIST "/transmit_server",
                                         TRANSMIT_DIST "/transmit"),
                         [](const auto& program) {
                             const std::string path = program.param;
                             return path.substr(path.rfind('/') + 1);
                         });

}  // namespace
