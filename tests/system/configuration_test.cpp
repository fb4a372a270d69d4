#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/server_root.h"
#include "tests/system/listing.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

namespace {

const std::string settings_file = "cfg/config.xml";
const std::string storage_file = "cfg/storage.xml";

// One change to a configuration that works: in `file` the text `from` becomes `to`.
struct Change {
    std::string file;
    std::string from;
    std::string to;
};

void apply(const support::ServerRoot& root, const Change& change) {
    const std::string path = root.path() + change.file;
    std::string text = support::read_file(path);
    const std::size_t at = text.find(change.from);
    if (at == std::string::npos) {
        throw std::runtime_error("nothing to change: " + change.from);
    }
    support::write_file(path, text.replace(at, change.from.size(), change.to));
}

// The line of the log that holds the text; empty if none does.
std::string line_with(const std::string& log, const std::string& text) {
    const std::size_t at = log.find(text);
    if (at == std::string::npos) {
        return "";
    }
    const std::size_t begin = log.rfind('\n', at) + 1;
    return log.substr(begin, log.find('\n', at) - begin);
}

struct Failure {
    Change change;
    std::string level;
    std::string line;
};

Failure lacking(const std::string& element, const std::string& whole) {
    return {{settings_file, whole, ""}, "   Error", "get_element <" + element + "> failed"};
}

Failure bad(const std::string& element, const std::string& from, const std::string& to) {
    const std::string end = "</" + element + ">";
    return {{settings_file, "<" + element + ">" + from + end, "<" + element + ">" + to + end},
            "   Error",
            "get_element <" + element + "> failed"};
}

Failure bad_storage(const std::string& from, const std::string& to, const std::string& line) {
    return {{storage_file, from, to}, "   Error", line};
}

std::vector<Failure> failures() {
    return {
        {{settings_file, "</transmit_server>", ""}, "Critical", "load failed, filename:{"},
        {{settings_file, "<host>", "<host"}, "Critical", "load failed, filename:{"},
        {{settings_file, "cfg/storage.xml", "cfg/missing.xml"},
         "Critical",
         "load failed, filename:{cfg/missing.xml}"},
        {{settings_file, "cfg/storage.xml", ""}, "Critical", "load failed, filename:{}"},
        {{storage_file, "</item>", "</itme>"},
         "Critical",
         "load failed, filename:{cfg/storage.xml}"},
        {{settings_file, "<host>0.0.0.0</host>", "<host/>"},
         "   Error",
         "transmit server host is invalid"},
        lacking("host", "<host>0.0.0.0</host>"),
        lacking("port", "<port>30000</port>"),
        lacking("command_port", "<command_port>30001</command_port>"),
        lacking("use_user_id", "<use_user_id>false</use_user_id>"),
        lacking("group_by_user_id", "<group_by_user_id>false</group_by_user_id>"),
        lacking("pathname_use_lower", "<pathname_use_lower>false</pathname_use_lower>"),
        lacking("transmit_temp_file_suffix",
                "<transmit_temp_file_suffix>.tcp</transmit_temp_file_suffix>"),
        lacking("transmit_info_update_interval",
                "<transmit_info_update_interval>1</transmit_info_update_interval>"),
        lacking("storage_configuration",
                "<storage_configuration>cfg/storage.xml</storage_configuration>"),
        bad("port", "30000", "70000"),
        bad("port", "30000", "none"),
        bad("port", "30000", "0"),
        bad("command_port", "30001", "0"),
        {{settings_file, "30001", "30000"}, "   Error", "transmit server ports are equal"},
        {{settings_file, "<transmit_server>",
          "<!DOCTYPE t [<!ENTITY % e ''> %e;]><transmit_server>"},
         "Critical",
         "load failed, filename:{"},
        bad("command_port", "30001", "65536"),
        bad("use_user_id", "false", "1"),
        bad("use_user_id", "false", "True"),
        bad("group_by_user_id", "false", ""),
        bad("pathname_use_lower", "false", "no"),
        bad("transmit_info_update_interval", "1", "often"),
        bad("transmit_info_update_interval", "1", "18446744073709551616"),
        bad_storage("<storages>", "<other/><!--", "load failed"),
        bad_storage("<id>1</id>", "", "get_element <id> failed"),
        bad_storage("<id>1</id>", "<id>one</id>", "storage id is invalid"),
        bad_storage("<id>1</id>", "<id>4294967296</id>", "storage id is invalid"),
        bad_storage("<id>1</id>", "<id/>", "storage id is invalid"),
        bad_storage("<name>Public</name>", "", "get_element <name> failed"),
        bad_storage("<name>Public</name>", "<name></name>", "storage name is invalid"),
        bad_storage("<directory>storage/public</directory>", "", "get_element <directory> failed"),
        bad_storage("<directory>storage/public</directory>", "<directory/>",
                    "storage directory is invalid"),
        bad_storage("</item>", "</item><other/>", "into_element <item> failed"),
        bad_storage("</item>",
                    "</item><item><id>01</id><name>Twin</name><directory>t</directory></item>",
                    "storage id is used twice"),
    };
}

TEST(ConfigurationTest, FailsToStartWithItsReasonInTheRunLog) {
    support::ServerSettings settings;
    settings.port = 30000;
    settings.command_port = 30001;
    for (Failure& failure : failures()) {
        SCOPED_TRACE(failure.change.from + " -> " + failure.change.to);
        const support::ServerRoot root(settings);
        if (failure.line == "load failed") {
            failure.level = "Critical";
        }
        apply(root, failure.change);
        support::ChildProcess process(root.program(), {root.program()});
        EXPECT_EQ(process.await_exit(), support::exited_with(5));
        EXPECT_EQ(process.output(), "");
        const std::string log = root.run_log();
        EXPECT_NE(line_with(log, failure.line).find(failure.level), std::string::npos) << log;
        EXPECT_NE(line_with(log, "parse configuration failure"), "");
        EXPECT_NE(line_with(log, "tcp transmit service init failed"), "");
    }
}

// The top elements under other names.
TEST(ConfigurationTest, NamesATopElementThatIsMissing) {
    const std::pair<std::string, std::string> tops[] = {{settings_file, "transmit_server"},
                                                        {storage_file, "storages"}};
    for (const auto& [file, name] : tops) {
        const support::ServerRoot root;
        apply(root, {file, "<" + name + ">", "<other>"});
        apply(root, {file, "</" + name + ">", "</other>"});
        support::ChildProcess process(root.program(), {root.program()});
        EXPECT_EQ(process.await_exit(), support::exited_with(5));
        EXPECT_NE(line_with(root.run_log(), "into_element <" + name + "> failed"), "");
    }
}

TEST(ConfigurationTest, FailsToStartOnAPortThatIsTaken) {
    const support::RunningServer running;
    support::ServerSettings settings;
    settings.command_port = running.command_port();
    const support::ServerRoot root(settings);
    support::ChildProcess process(root.program(), {root.program()});
    EXPECT_EQ(process.await_exit(), support::exited_with(5));
    EXPECT_NE(
        line_with(root.run_log(), "start tcp manager (" + std::to_string(root.transmit_port()) +
                                      ", " + std::to_string(root.command_port()) + ") failure"),
        "");
}

// A server whose configuration was changed before its start.
class ChangedServer {
  public:
    explicit ChangedServer(const std::vector<Change>& changes) {
        server_.stop();
        for (const Change& change : changes) {
            apply(server_.root(), change);
        }
        server_.start();
    }

    support::RunningServer& operator*() { return server_; }
    support::RunningServer* operator->() { return &server_; }

  private:
    support::RunningServer server_;
};

TEST(ConfigurationTest, ReadsValuesAsTheyAreCommonlyWritten) {
    ChangedServer server({
        {settings_file, "<host>0.0.0.0</host>", "<!-- all --><host> 10.1.2.3 </host>"},
        {settings_file, "<use_user_id>false", "<use_user_id>\n  true and more"},
        {settings_file, "<transmit_temp_file_suffix>.tcp", "<transmit_temp_file_suffix>  "},
        {settings_file, "interval>1<", "interval>999<"},
        {settings_file, "<transmit_server>", "<transmit_server><unknown>x</unknown>"},
        {storage_file, "<id>1</id>", "<id>007</id>"},
        {storage_file, "<name>Public</name>", "<name><![CDATA[A & B]]></name>"},
        {storage_file, "</storages>",
         "<item><id>8</id><name>New</name><show>true</show><directory>new</directory></item>"
         "<item><id>9</id><name>Unsaid</name><directory>unsaid</directory></item>"
         "<item><id>10</id><name>Misspelt</name><show>1</show><directory>m</directory></item>"
         "</storages>"},
    });
    Peer peer(server->transmit_port());
    const std::vector<listing::Element> shown = {
        {"storage", {{"id", "007"}, {"name", "A & B"}}},
        {"storage", {{"id", "8"}, {"name", "New"}}},
    };
    EXPECT_EQ(listing::parse(peer.storage_information().text), shown);
    EXPECT_EQ(peer.ask(request::check_storage_id(9)), message::status_ok);
    EXPECT_EQ(
        peer.prepare(request::Upload{.path = "f", .size = 1, .user_id = 5, .storage_id = 7}).status,
        message::status_file_incomplete);
    EXPECT_TRUE(stored_file::exists(server->storage_folder() + "5/f.tcp"));
    EXPECT_EQ(peer.upload({.path = "f", .size = 0, .storage_id = 8}, ""), message::status_ok);
    EXPECT_TRUE(stored_file::exists(server->root().path() + "new/f"));
}

TEST(ConfigurationTest, RunsWithoutAnyStorage) {
    support::ServerSettings settings;
    settings.storages.clear();
    support::RunningServer server(settings);
    Peer peer(server.transmit_port());
    EXPECT_TRUE(listing::parse(peer.storage_information().text).empty());
    EXPECT_EQ(peer.list("").status, message::status_invalid_storage_id);
}

}  // namespace
