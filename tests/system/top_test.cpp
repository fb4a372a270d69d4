#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/system/server_test.h"

// `transmit top` on a server whose clients choose hostile names.
namespace {

using support::ChildProcess;

constexpr auto program = TRANSMIT_DIST "/transmit";
constexpr auto limit = std::chrono::minutes(1);

constexpr auto forged_client =
    R"({}},{"node_id":1,"node_ip":"10.9.8.7","node_port":6,"node_type":"message","node_speed":0,)"
    R"("node_filename":"","node_filesize":0,"node_progress":0,"node_user_info":{})";

class TopTest : public ServerTest {
  protected:
    std::vector<std::string> words(std::vector<std::string> options = {}) const {
        std::vector<std::string> all{"transmit", "top", "127.0.0.1:" + port(server.transmit_port()),
                                     "--command-port", port(server.command_port())};
        all.insert(all.end(), options.begin(), options.end());
        return all;
    }

  private:
    static std::string port(std::uint16_t number) { return std::to_string(number); }
};

TEST_F(TopTest, MarksForgedRowsAndShowsTheRestAsTheyAre) {
    Peer uploader(server.transmit_port());
    ASSERT_EQ(uploader.prepare(request::Upload{.path = "a\x1B[2J\"b", .size = 1}).status,
              message::status_file_incomplete);
    uploader.send_file_data(std::string(70000, 'x'));
    ASSERT_EQ(peer.ask(request::set_user_information(forged_client)), message::status_ok);

    ChildProcess top(program, words({"--interval", "1"}));
    ASSERT_TRUE(top.await_output("> 100 %", limit)) << top.output();
    top.clear_output();
    ASSERT_TRUE(top.await_output("10.9.8.7:6", limit)) << top.output();
    ASSERT_TRUE(top.await_output("\n\n", limit));
    const std::string& shown = top.output();
    EXPECT_NE(shown.find("1 other connection more than the server counts"), std::string::npos);
    EXPECT_NE(shown.find("\n! 10.9.8.7:6 "), std::string::npos) << shown;
    EXPECT_NE(shown.find("a\\x1B[2J\"b\n"), std::string::npos) << shown;
    EXPECT_EQ(shown.find("\n? "), std::string::npos) << "no upload is in doubt";
    EXPECT_EQ(shown.find('\x1B'), std::string::npos);
    top.send_signal(SIGINT);
    EXPECT_EQ(top.await_exit(limit), support::exited_with(0));
}

TEST_F(TopTest, JsonIsValidWhateverClientsSay) {
    Peer uploader(server.transmit_port());
    ASSERT_EQ(uploader.prepare(request::Upload{.path = "quo\"te", .size = 10}).status,
              message::status_file_incomplete);
    uploader.send_file_data("12345");
    ASSERT_EQ(peer.ask(request::set_user_information(forged_client)), message::status_ok);
    const std::string expected[] = {"row", "row", ""};
    ASSERT_TRUE(await([&] {
        std::istringstream lines(support::output_of(program, words({"--once", "--json"}), limit));
        std::vector<nlohmann::json> objects;
        for (std::string line; std::getline(lines, line);) {
            objects.push_back(nlohmann::json::parse(line));
        }
        bool all = objects.size() == 4 && objects[0].contains("transmit_statistics");
        for (std::size_t row = 0; all && row < std::size(expected); ++row) {
            all = objects[row + 1].value("doubt", "") == expected[row];
        }
        return all && objects[3]["node_filesize"] == 10;
    }));
}

}  // namespace
