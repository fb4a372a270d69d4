#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/folder_state.h"
#include "tests/system/http_peer.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// Nothing that a client says reaches what lies outside its storage, its user's folder or the pages:
// it is neither told, nor changed, nor removed, nor does its mode change.
namespace {

using message::status_ok;

constexpr const char* secret = "a secret of somebody else";
constexpr std::uint32_t user = 7;

support::ServerSettings with_users() {
    support::ServerSettings settings;
    settings.use_user_id = true;
    return settings;
}

class ContainmentTest : public ServerTest {
  protected:
    ContainmentTest() : ServerTest(with_users()) {
        std::filesystem::create_directories(own(""));
        for (const std::string& place :
             {outside("sentinel"), outside("folder/sentinel"), in_storage("8/sentinel")}) {
            stored_file::put(place, secret);
            chmod(place.c_str(), 0400);
        }
        before_ = state();
    }

    void TearDown() override {
        EXPECT_EQ(state(), before_);
        ServerTest::TearDown();
    }

    std::string outside(const std::string& name) const {
        return server.root().path() + "outside/" + name;
    }
    std::string own(const std::string& name) const { return in_storage("7/" + name); }

    // Everything that lies where no request of the user may get.
    support::FolderState state() const {
        return support::state_of(server.root().path(), {"log", "storage/public/7"});
    }

    // Each request with a path, for a path that a client made up, as the user.
    void try_everything(const std::string& path) {
        SCOPED_TRACE(path.substr(0, 200));
        const request::Place who{.user_id = user};
        std::string told = peer.list(path, who).text;
        if (peer.prepare(request::Download{.path = path, .user_id = user}).status == status_ok) {
            told += peer.stream_from(0).plain;
            peer.finish_download();
        }
        stored_file::put(own("mine"), "mine");
        peer.ask(request::rename_path(path, "taken", who));
        peer.ask(request::rename_path("mine", path, who));
        peer.ask(request::create_directory(path, who));
        peer.upload({.path = path, .size = 4, .user_id = user}, "mine");
        peer.upload({.path = path + "/mine", .size = 4, .user_id = user}, "mine");
        peer.ask(request::delete_path(path, who));
        EXPECT_EQ(told.find(secret), std::string::npos);
        EXPECT_EQ(told.find("sentinel"), std::string::npos);
    }

  private:
    support::FolderState before_;
};

TEST_F(ContainmentTest, NoTextOfAPathLeadsOut) {
    std::string climb;
    for (int step = 0; step < 9000; ++step) {
        climb += "../";
    }
    const std::string deep = std::string(4080, 'n') + "/n/n/";
    for (const std::string& way : std::vector<std::string>{
             "../8/", "..\\8\\", "x/../../8/", "./..//../outside/", "..\\..\\..\\outside/",
             climb + "outside/", "..../..../8/", ".. /8/", "..;/8/", "%2e%2e/8/",
             "\xC0\xAE\xC0\xAE/8/", server.root().path() + "outside/", "/proc/self/cwd/outside/",
             "file:///", "~/", deep + "../../../../8/", deep + "..x/..y/"}) {
        try_everything(way);
        try_everything(way + "sentinel");
        try_everything(way + std::string("sentinel\0/../../8/sentinel", 26));
    }
}

// What an operator, or a program beside the server, may have left in a storage.
TEST_F(ContainmentTest, ALinkIsTakenForItselfWhereItIsNamed) {
    const request::Place who{.user_id = user};
    for (const std::string& goal : {outside("sentinel"), outside("folder"), outside("missing"),
                                    std::string(".."), std::string("/"), std::string("link")}) {
        SCOPED_TRACE(goal);
        const auto plant = [&](const std::string& name) {
            std::filesystem::remove_all(own(""));
            std::filesystem::create_directories(own("folder"));
            std::filesystem::create_symlink(goal, own(name));
        };
        plant("link");
        EXPECT_EQ(peer.ask(request::rename_path("link", "moved", who)), status_ok);
        EXPECT_EQ(std::filesystem::read_symlink(own("moved")), goal);
        plant("link");
        EXPECT_EQ(peer.ask(request::delete_path("link", who)), status_ok);
        EXPECT_FALSE(stored_file::exists(own("link")));
        plant("folder/link");
        EXPECT_EQ(peer.ask(request::delete_path("folder", who)), status_ok);
        EXPECT_FALSE(stored_file::exists(own("folder")));

        // In the place of a file or of its temporary file it isn't written through.
        plant("link");
        std::error_code no_goal;
        const bool is_folder = std::filesystem::is_directory(own("link"), no_goal);
        const request::Upload upload{.path = "link", .size = 4, .user_id = user};
        EXPECT_EQ(peer.upload(upload, "mine"),
                  is_folder ? message::status_path_is_directory : status_ok);
        EXPECT_EQ(std::filesystem::is_symlink(own("link")), is_folder);
        plant("link.tcp");
        EXPECT_EQ(peer.upload(upload, "mine"), status_ok);
        EXPECT_EQ(support::read_file(own("link")), "mine");
    }
}

// A link to the beginning of an upload isn't gone on with: the bytes would go to where it leads.
TEST_F(ContainmentTest, NoUploadGoesOnThroughALink) {
    std::filesystem::create_symlink(outside("sentinel"), own("n.tcp"));
    const request::Upload upload{.path = "n", .size = 1000, .time = 1000, .user_id = user};
    EXPECT_EQ(peer.prepare(upload), (UploadPrepared{message::status_file_incomplete, 0}));
    EXPECT_FALSE(std::filesystem::is_symlink(own("n.tcp")));
}

// So that a folder of another disk can be brought in.
TEST_F(ContainmentTest, ALinkToAFolderLeadsOnWhatFollowsIt) {
    const support::TemporaryFolder disk;
    std::filesystem::create_symlink(disk.path(), own("disk"));
    EXPECT_EQ(peer.upload({.path = "disk/a", .size = 2, .user_id = user}, "ok"), status_ok);
    EXPECT_EQ(support::read_file(disk.path() + "a"), "ok");
    EXPECT_NE(peer.list("disk", {.user_id = user}).text.find("\"a\""), std::string::npos);
    EXPECT_EQ(peer.ask(request::delete_path("disk/a", {.user_id = user})), status_ok);
    EXPECT_FALSE(stored_file::exists(disk.path() + "a"));
}

TEST_F(ContainmentTest, ARootThatIsMissingTakesNoFileInItsPlace) {
    std::filesystem::remove(own(""));
    for (const char* path : {"", ".", "/", "a/.."}) {
        EXPECT_EQ(peer.upload({.path = path, .size = 4, .user_id = user}, "mine"),
                  message::status_path_is_directory);
    }
    EXPECT_FALSE(stored_file::exists(in_storage("7")));
}

TEST_F(ContainmentTest, NoUrlLeavesThePages) {
    HttpPeer http(server.command_port());
    for (const std::string& url :
         {std::string("/../outside/sentinel"), std::string("/x/../../outside/sentinel"),
          std::string("/..\\outside\\sentinel"), std::string("..\\outside\\sentinel"),
          std::string("/%2e%2e/outside/sentinel"), std::string("/.%00./outside/sentinel"),
          std::string("/.\0./outside/sentinel", 21), "/" + outside("sentinel"), outside("sentinel"),
          outside("sentinel").substr(1), "file://" + outside("sentinel"),
          std::string("/sys/../outside/sentinel"), std::string("sys/../outside/sentinel"),
          std::string("/"), std::string("//"), std::string("/."), std::string("//."),
          std::string("/js")}) {
        SCOPED_TRACE(url);
        const Answer answer = http.get(url);
        EXPECT_EQ(answer.body.find(secret), std::string::npos);
        EXPECT_EQ(answer.status == "200 OK", url == "/");
    }
}

}  // namespace
