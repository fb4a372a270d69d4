#include <gtest/gtest.h>

#include "client/cli/documents/completion.h"
#include "client/cli/documents/manual_page.h"
#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace transmit::cli;

TEST(Documents, TheManualPageHoldsEveryCommandAndOption) {
    const ProgramDescription program = describe_program();
    const std::string page = manual_page(
        ".TH X 1\n@EXAMPLES@\n@COMMANDS@\n@OPTIONS@\n@EXIT_STATUS@\n.SH END\n", program);
    const auto expect_option = [&page](const OptionDescription& option) {
        for (std::string name : option.names) {
            for (auto place = name.find('-'); place != std::string::npos;
                 place = name.find('-', place + 2)) {
                name.insert(place, "\\");
            }
            EXPECT_NE(page.find("\\fB" + name + "\\fR"), std::string::npos) << name;
        }
    };
    ASSERT_EQ(program.commands.size(), 12U);
    for (const CommandDescription& command : program.commands) {
        EXPECT_NE(page.find(".SS " + command.name + "\n"), std::string::npos) << command.name;
        for (const OptionDescription& option : command.options) {
            expect_option(option);
        }
    }
    ASSERT_FALSE(program.common_options.empty());
    for (const OptionDescription& option : program.common_options) {
        expect_option(option);
    }
    EXPECT_EQ(page.find('@'), std::string::npos);
    EXPECT_TRUE(page.ends_with(".SH END\n"));
}

// What bash would offer behind these words.
std::string offered(const std::string& script, const std::string& words) {
    return support::output_of("/bin/bash",
                              {"bash", "-c",
                               "compopt() { :; }; . " + script + "; COMP_WORDS=(" + words +
                                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _transmit; "
                                   "echo -n \"${COMPREPLY[*]}\""});
}

TEST(Documents, BashCompletesFromTheSameTable) {
    const support::TemporaryFolder folder;
    const std::string script = folder.path() + "transmit.bash";
    support::write_file(script, bash_completion(describe_program()));
    EXPECT_EQ(offered(script, "transmit st"), "stat storages");
    EXPECT_EQ(offered(script, "transmit --storage 2 get --st"), "--storage --streams");
    EXPECT_EQ(offered(script, "transmit put --progress ''"), "bar line none");
    EXPECT_EQ(offered(script, "transmit ls --lo"), "--long");
    EXPECT_EQ(offered(script, "transmit put --jobs ''"), "");
}

}  // namespace
