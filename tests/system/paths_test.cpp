#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// Where a client's path text lands on the disk, and that it never lands outside its storage.
namespace {

using message::status_ok;

// Everything below a folder, relative to it; folders with "/" at their end.
std::set<std::string> tree_below(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = std::filesystem::relative(entry.path(), folder);
        names.insert(entry.is_directory() ? name + "/" : name);
    }
    return names;
}

support::ServerSettings with_users(bool grouped) {
    support::ServerSettings settings;
    settings.use_user_id = true;
    settings.group_by_user_id = grouped;
    return settings;
}

// A storage between two neighbours that no request may touch.
class PathsTest : public ServerTest {
  protected:
    explicit PathsTest(const support::ServerSettings& settings = {}) : ServerTest(settings) {
        stored_file::put(beside("sentinel"), "untouched");
        stored_file::put(beside("x"), "untouched");
    }

    void TearDown() override {
        EXPECT_EQ(tree_below(beside("")).size(), tree_below(server.storage_folder()).size() + 3);
        EXPECT_EQ(support::read_file(beside("sentinel")), "untouched");
        EXPECT_EQ(support::read_file(beside("x")), "untouched");
        ServerTest::TearDown();
    }

    std::string beside(const std::string& name) const {
        return server.storage_folder() + "../" + name;
    }

    // Whether an upload to the path lands at that place of the storage, and a listing, a download
    // and a delete find it there.
    void expect_file_at(const std::string& path, const std::string& place,
                        request::Place who = {}) {
        SCOPED_TRACE(testing::Message() << '"' << path << "\" of user " << who.user_id);
        EXPECT_EQ(peer.upload({.path = path, .size = 2, .user_id = who.user_id}, "ok"), status_ok);
        EXPECT_EQ(support::read_file(in_storage(place)), "ok");
        EXPECT_EQ(peer.list(path, who).status, message::status_path_is_file);
        EXPECT_EQ(peer.prepare(request::Download{.path = path, .user_id = who.user_id}).size, 2);
        EXPECT_EQ(peer.ask(request::delete_path(path, who)), status_ok);
        EXPECT_FALSE(stored_file::exists(in_storage(place)));
    }
};

TEST_F(PathsTest, RebuildsAPathFromItsPieces) {
    const std::pair<std::string, std::string> places[] = {
        {"../../x", "x"},
        {"/../x", "x"},
        {"..\\..\\x", "x"},
        {"a/../../b", "b"},
        {"a/b/..", "a"},
        {"a/b/../", "a"},
        {"a\\b//c", "a/b/c"},
        {"a/", "a"},
        {"a/./", "a"},
        {"./a/./b/.", "a/b"},
        {"a/ ", "a/ "},
        {"   ", "   "},
        {"...", "..."},
        {".. /x", ".. /x"},
        {" ../x", " ../x"},
        {"..x/y", "..x/y"},
        {"C:/x", "C:/x"},
        {"/etc/passwd", "etc/passwd"},
        {"~/x", "~/x"},
        {std::string("a\0/../../x", 10), "a"},
        {"\xff\xfe\x01\n", "\xff\xfe\x01\n"},
    };
    for (const auto& [path, place] : places) {
        expect_file_at(path, place);
        std::filesystem::remove_all(in_storage(std::filesystem::path(place).begin()->string()));
    }
}

TEST_F(PathsTest, TakesWhatLeavesNothingForTheRoot) {
    stored_file::put(in_storage("only"), "x");
    const std::vector<std::string> roots = {
        "", ".", "..", "/", "\\", "a/..", "../..", "./../", std::string("\0x", 2)};
    for (const std::string& path : roots) {
        SCOPED_TRACE(path);
        EXPECT_NE(peer.list(path).text.find("only"), std::string::npos);
        EXPECT_EQ(peer.prepare(request::Upload{.path = path}).status,
                  message::status_path_is_directory);
        EXPECT_EQ(peer.ask(request::create_directory(path)), status_ok);
        EXPECT_EQ(peer.ask(request::delete_path(path)), message::status_delete_failed);
        EXPECT_EQ(peer.ask(request::rename_path("only", path)), message::status_rename_failed);
    }
    EXPECT_EQ(tree_below(server.storage_folder()), std::set<std::string>{"only"});
}

// The root may be a link, which a rename would replace or move like any other.
TEST(RootTest, ARootKeepsItsName) {
    const support::TemporaryFolder folder;
    std::filesystem::create_directories(folder.path() + "real/3");
    std::filesystem::create_directory_symlink(folder.path() + "real", folder.path() + "link");
    support::ServerSettings settings = with_users(false);
    settings.storages = {{.id = 1, .directory = folder.path() + "link"}};
    support::RunningServer server(settings);
    Peer peer(server.transmit_port());
    stored_file::put(folder.path() + "real/d/f", "kept");
    for (const auto& [from, to] : {std::pair{"", "x"}, std::pair{"d", ""}, std::pair{"d/f", "/"}}) {
        EXPECT_EQ(peer.ask(request::rename_path(from, to)), message::status_rename_failed);
    }
    EXPECT_EQ(peer.ask(request::rename_path("", "x", {.user_id = 3})),
              message::status_rename_failed);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path() + "link"));
    EXPECT_EQ(tree_below(folder.path() + "real"), (std::set<std::string>{"3/", "d/", "d/f"}));
}

TEST(RootTest, OnlyTheAdministratorMakesItIfTheStorageSaysSo) {
    const support::TemporaryFolder folder;
    support::ServerSettings settings;
    settings.storages = {{.id = 1,
                          .directory = folder.path() + "disk/storage",
                          .further = "<create_directory>false</create_directory>"}};
    support::RunningServer server(settings);
    Peer peer(server.transmit_port());
    EXPECT_EQ(peer.upload({.path = "a/f", .size = 2}, "ok"), status_ok);
    std::filesystem::remove_all(folder.path() + "disk");
    EXPECT_EQ(peer.prepare(request::Upload{.path = "f"}).status,
              message::status_create_directory_failed);
    EXPECT_EQ(peer.ask(request::create_directory("d")), message::status_create_directory_failed);
    EXPECT_FALSE(stored_file::exists(folder.path() + "disk"));
}

TEST_F(PathsTest, AnswersWhateverPathTheWireCanHold) {
    const std::vector<std::string> paths = {std::string(65535, 'n'), std::string(65535, '/'),
                                            std::string(65535, '.'),
                                            [] {
                                                std::string climb;
                                                while (climb.size() < 65000) {
                                                    climb += "../";
                                                }
                                                return climb + "x";
                                            }(),
                                            [] {
                                                std::string deep;
                                                while (deep.size() < 65000) {
                                                    deep += "deep/";
                                                }
                                                return deep;
                                            }()};
    for (const std::string& path : paths) {
        for (const std::uint32_t user : {0U, 5U}) {
            const request::Place who{.user_id = user};
            peer.prepare(request::Upload{.path = path, .user_id = user});
            peer.prepare(request::Download{.path = path, .user_id = user});
            peer.ask(request::rename_path(path, path, who));
            peer.ask(request::create_directory(path, who));
            peer.list(path, who);
            peer.ask(request::delete_path(path, who));
        }
    }
    EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
}

class UsersTest : public PathsTest {
  protected:
    UsersTest() : PathsTest(with_users(false)) {}
};

TEST_F(UsersTest, GivesEachUserAFolderThatThePathCannotLeave) {
    expect_file_at("a", "7/a", {.user_id = 7});
    expect_file_at("../8/a", "7/8/a", {.user_id = 7});
    expect_file_at("../../../x", "4294967/x", {.user_id = 4294967});
    expect_file_at("a", "-1/a", {.user_id = 4294967295});
    expect_file_at("a", "a");
    EXPECT_EQ(peer.ask(request::create_directory("", {.user_id = 99})), status_ok);
    EXPECT_TRUE(std::filesystem::is_directory(in_storage("99")));
    stored_file::put(in_storage("99/f"), "x");
    EXPECT_EQ(peer.ask(request::delete_path("", {.user_id = 99})), message::status_delete_failed);
    EXPECT_TRUE(stored_file::exists(in_storage("99/f")));
    EXPECT_NE(peer.list("").text.find("<folder name=\"99\""), std::string::npos);
}

class GroupsTest : public PathsTest {
  protected:
    GroupsTest() : PathsTest(with_users(true)) {}
};

TEST_F(GroupsTest, GathersUsersByFiveHundreds) {
    expect_file_at("docs\\old\\..\\a.txt", "1000/1234/docs/a.txt", {.user_id = 1234});
    expect_file_at("a", "0/1/a", {.user_id = 1});
    expect_file_at("a", "0/499/a", {.user_id = 499});
    expect_file_at("a", "500/500/a", {.user_id = 500});
    expect_file_at("a", "-296/-1/a", {.user_id = 4294967295});
    expect_file_at("a", "a");
}

TEST_F(PathsTest, IgnoresUsersUnlessConfigured) {
    expect_file_at("a/b", "a/b", {.user_id = 7});
    expect_file_at("a/b", "a/b", {.user_id = 8});
}

// The folding covers the whole path, so the storage needs a place without capitals.
class LowerCaseFolder {
  public:
    LowerCaseFolder() : path_("/tmp/transmit-lower-" + std::to_string(getpid()) + "/") {
        std::filesystem::create_directories(path_);
    }
    ~LowerCaseFolder() { std::filesystem::remove_all(path_); }
    LowerCaseFolder(const LowerCaseFolder&) = delete;
    LowerCaseFolder& operator=(const LowerCaseFolder&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

TEST(LowerCaseTest, FoldsWhatIsCreatedAndNothingElse) {
    const LowerCaseFolder folder;
    support::ServerSettings settings;
    settings.pathname_use_lower = true;
    // Capitals in the configuration are folded too.
    settings.storages = {{.id = 1, .directory = folder.path() + "S"}};
    support::RunningServer server(settings);
    std::filesystem::remove(folder.path() + "S");
    Peer peer(server.transmit_port());

    EXPECT_EQ(peer.upload({.path = "Sub/Abc.TXT", .size = 2}, "ok"), status_ok);
    EXPECT_EQ(peer.ask(request::create_directory("Made\xC3\x84")), status_ok);
    EXPECT_EQ(tree_below(folder.path()),
              (std::set<std::string>{"s/", "s/sub/", "s/sub/abc.txt", "s/made\xC3\x84/"}));
    EXPECT_EQ(peer.prepare(request::Download{.path = "Sub/Abc.TXT"}).status,
              message::status_access_failed);
    EXPECT_EQ(peer.prepare(request::Download{.path = "sub/abc.txt"}).status, status_ok);
    EXPECT_EQ(peer.list("Sub").status, message::status_access_failed);
    EXPECT_EQ(peer.ask(request::rename_path("sub/abc.txt", "sub/Xyz")), status_ok);
    EXPECT_EQ(peer.ask(request::delete_path("SUB")), status_ok);
    EXPECT_TRUE(stored_file::exists(folder.path() + "s/sub/Xyz"));
}

}  // namespace
