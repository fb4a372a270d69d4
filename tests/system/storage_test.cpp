#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/listing.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// What a client can ask of storages, folders and names besides moving files.
namespace {

using message::status_ok;
using stored_file::exists;

class StorageTest : public ServerTest {
  protected:
    using ServerTest::ServerTest;

    std::map<std::string, listing::Element> listed(const std::string& path) {
        const Document document = peer.list(path);
        EXPECT_EQ(document.status, message::status_path_is_directory);
        return listing::by_name(document.text);
    }

    message::Status create(const std::string& path) {
        return peer.ask(request::create_directory(path));
    }
    message::Status remove(const std::string& path) { return peer.ask(request::delete_path(path)); }
    message::Status rename(const std::string& from, const std::string& to) {
        return peer.ask(request::rename_path(from, to));
    }

    bool logged(const std::string& text) const {
        return server.root().run_log().find(text) != std::string::npos;
    }
};

class StoragesTest : public StorageTest {
  protected:
    StoragesTest() : StorageTest(three_storages()) {}

    static support::ServerSettings three_storages() {
        support::ServerSettings settings;
        settings.storages = {
            {.id = 7, .name = "Archive &lt;old&gt; &amp; \"quoted\"", .directory = "storage/seven"},
            {.id = 2,
             .name = "\xC3\x96"
                     "ffentlich",
             .directory = "storage/two"},
            {.id = 4294967295, .name = "Hidden", .show = false, .directory = "storage/hidden"},
        };
        return settings;
    }
};

TEST_F(StoragesTest, ListsTheShownOnesByRisingIdAndServesAll) {
    const Document document = peer.storage_information();
    EXPECT_EQ(document.status, status_ok);
    const std::vector<listing::Element> shown = {
        {"storage",
         {{"id", "2"},
          {"name",
           "\xC3\x96"
           "ffentlich"}}},
        {"storage", {{"id", "7"}, {"name", "Archive <old> & \"quoted\""}}},
    };
    EXPECT_EQ(listing::parse(document.text), shown);

    for (const std::uint32_t id : {2U, 7U, 4294967295U}) {
        EXPECT_EQ(peer.ask(request::check_storage_id(id)), status_ok);
        EXPECT_EQ(peer.upload({.path = "f", .size = 2, .storage_id = id}, "ok"), status_ok);
        EXPECT_EQ(support::read_file(server.storage_folder(id) + "f"), "ok");
    }
    for (const std::uint32_t id : {0U, 1U, 3U}) {
        const request::Place place{.storage_id = id};
        EXPECT_EQ(peer.ask(request::check_storage_id(id)), message::status_invalid_storage_id);
        EXPECT_EQ(peer.ask(request::create_directory("d", place)),
                  message::status_invalid_storage_id);
        EXPECT_EQ(peer.ask(request::delete_path("d", place)), message::status_invalid_storage_id);
        EXPECT_EQ(peer.ask(request::rename_path("d", "e", place)),
                  message::status_invalid_storage_id);
        const Document refusal = peer.list("", place);
        EXPECT_EQ(refusal.status, message::status_invalid_storage_id);
        EXPECT_EQ(refusal.text, "");
        EXPECT_TRUE(logged("invalid storage id: " + std::to_string(id)));
    }
}

TEST_F(StorageTest, CountsTheConnections) {
    EXPECT_EQ(peer.node_count(), 1);
    {
        Peer second(server.transmit_port());
        Peer third(server.transmit_port());
        EXPECT_EQ(third.node_count(), 3);
        support::RawSocket command(server.command_port());
        EXPECT_EQ(second.node_count(), 3);
    }
    ASSERT_TRUE(await([&] { return peer.node_count() == 1; }));
}

TEST_F(StorageTest, CreatesFoldersWithTheirParents) {
    stored_file::put(in_storage("file"), "kept");
    EXPECT_EQ(create("a/b/c"), status_ok);
    EXPECT_EQ(create("a/b/c"), status_ok);
    EXPECT_TRUE(std::filesystem::is_directory(in_storage("a/b/c")));
    EXPECT_EQ(create("file"), message::status_create_directory_failed);
    EXPECT_EQ(create("file/below"), message::status_create_directory_failed);
    EXPECT_EQ(create(std::string(256, 'n')), message::status_create_directory_failed);
    EXPECT_TRUE(logged("create directory failed (" + in_storage("file") + ")"));
    EXPECT_EQ(support::read_file(in_storage("file")), "kept");

    std::filesystem::remove_all(server.storage_folder());
    EXPECT_EQ(create(""), status_ok);
    EXPECT_TRUE(std::filesystem::is_directory(server.storage_folder()));
}

TEST_F(StorageTest, ListsOneLevelOfAFolder) {
    EXPECT_EQ(listing::parse(peer.list("").text), std::vector<listing::Element>{});
    stored_file::put(in_storage("a.txt"), "hello", 1560000000);
    stored_file::put(in_storage("before"), "", -5);
    stored_file::put(in_storage("pics/inside"), "x");
    const std::map<std::string, listing::Element> expected = {
        {"a.txt", listing::file("a.txt", 5, 1560000000)},
        {"before", listing::file("before", 0, -5)},
        {"pics", listing::folder("pics")},
    };
    EXPECT_EQ(listed(""), expected);
    EXPECT_EQ(listed("pics/..//"), expected);

    const Document file = peer.list("a.txt");
    EXPECT_EQ(file.status, message::status_path_is_file);
    EXPECT_EQ(file.text, "");
    EXPECT_EQ(peer.list("missing").status, message::status_access_failed);
    EXPECT_EQ(peer.list("a.txt/below").status, message::status_access_failed);
    EXPECT_TRUE(logged("can not access file (" + in_storage("missing") + ")"));
}

TEST_F(StorageTest, ListsWhateverANameHolds) {
    const std::string replacement = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> names[] = {
        {"plain", "plain"},
        {"a b", "a b"},
        {"\xC3\xA9", "\xC3\xA9"},
        {"<&>\"'", "<&>\"'"},
        {"]]>", "]]>"},
        {"&amp;", "&amp;"},
        {"line\nfeed\ttab\rreturn", "line\nfeed\ttab\rreturn"},
        {"control\x01\x1f", "control" + replacement + replacement},
        {"bad\xFFutf8", "bad" + replacement + "utf8"},
        {"cut\xE2\x82", ""},
        {"surrogate\xED\xA0\x80", ""},
        {"overlong\xC0\xAF", ""},
        {"\xEF\xBF\xBE", replacement},
        {"back\\slash", "back\\slash"},
        {std::string(255, 'n'), std::string(255, 'n')},
    };
    for (const auto& [name, shown] : names) {
        SCOPED_TRACE(shown);
        for (const bool as_folder : {false, true}) {
            std::filesystem::remove_all(in_storage("d"));
            if (as_folder) {
                std::filesystem::create_directories(in_storage("d/" + name));
            } else {
                stored_file::put(in_storage("d/" + name), "123");
            }
            const auto elements = listed("d");
            ASSERT_EQ(elements.size(), 1);
            const listing::Element& element = elements.begin()->second;
            EXPECT_EQ(element.name, as_folder ? "folder" : "file");
            if (shown.empty()) {
                EXPECT_NE(elements.begin()->first.find(replacement), std::string::npos);
            } else {
                EXPECT_EQ(elements.begin()->first, shown);
            }
        }
    }
}

TEST_F(StorageTest, ListsAnUploadUnderWayAndWhatCannotBeExamined) {
    ASSERT_EQ(peer.prepare(request::Upload{.path = "up", .size = 10}).status,
              message::status_file_incomplete);
    peer.send_file_data("12345");
    std::filesystem::create_symlink("nowhere", in_storage("dangling"));
    const auto elements = listed("");
    ASSERT_TRUE(elements.contains("up.tcp"));
    EXPECT_EQ(elements.at("up.tcp").attributes[1].second, "5");
    EXPECT_TRUE(elements.contains("dangling"));
    peer.send_file_data("67890");
    EXPECT_EQ(peer.finish_upload(), status_ok);
}

TEST_F(StorageTest, DeletesFilesFoldersAndWhatIsNotThere) {
    EXPECT_EQ(remove("missing"), status_ok);
    EXPECT_EQ(remove("missing/below"), status_ok);
    stored_file::put(in_storage("f"), "x");
    chmod(in_storage("f").c_str(), 0);
    EXPECT_EQ(remove("f"), status_ok);
    stored_file::put(in_storage("d/e/f"), "x");
    chmod(in_storage("d/e/f").c_str(), 0);
    stored_file::put(in_storage("d/g"), "x");
    std::filesystem::create_directories(in_storage("d/\xFF\n"));
    EXPECT_EQ(remove("d/"), status_ok);
    EXPECT_TRUE(std::filesystem::is_empty(server.storage_folder()));
    EXPECT_EQ(remove(""), message::status_delete_failed);
    EXPECT_TRUE(std::filesystem::exists(server.storage_folder()));
}

// Far longer than the longest path that a system call takes, and more levels than descriptors.
void make_deep_tree(const std::string& top, int levels) {
    std::filesystem::create_directories(top);
    int folder = open(top.c_str(), O_RDONLY | O_DIRECTORY);
    const std::string name(20, 'd');
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0700), 0);
        const int below = openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        close(folder);
        folder = below;
    }
    close(folder);
}

TEST_F(StorageTest, DeletesADeepTreeAndAFullFolder) {
    make_deep_tree(in_storage("deep"), 1500);
    std::filesystem::create_directories(in_storage("full"));
    for (int number = 0; number < 10000; ++number) {
        close(open(in_storage("full/" + std::to_string(number)).c_str(), O_CREAT | O_WRONLY, 0600));
    }
    EXPECT_EQ(listed("full").size(), 10000);
    EXPECT_EQ(remove("deep"), status_ok);
    EXPECT_EQ(remove("full"), status_ok);
    EXPECT_FALSE(exists(in_storage("deep")));
    EXPECT_FALSE(exists(in_storage("full")));
}

TEST_F(StorageTest, NeverFollowsALinkWhenItDeletes) {
    const std::string outside = server.root().path() + "outside/";
    stored_file::put(outside + "f", "kept");
    chmod((outside + "f").c_str(), 0400);
    std::filesystem::create_directory_symlink(outside, in_storage("to_folder"));
    std::filesystem::create_symlink(outside + "f", in_storage("to_file"));
    std::filesystem::create_directories(in_storage("d"));
    std::filesystem::create_directory_symlink(outside, in_storage("d/to_folder"));
    std::filesystem::create_symlink(outside + "f", in_storage("d/to_file"));
    std::filesystem::create_symlink("nowhere", in_storage("d/dangling"));
    std::filesystem::create_directory_symlink(".", in_storage("d/loop"));

    EXPECT_EQ(remove("d"), status_ok);
    EXPECT_EQ(remove("to_folder"), status_ok);
    EXPECT_EQ(remove("to_file"), status_ok);
    EXPECT_TRUE(std::filesystem::is_empty(server.storage_folder()));
    EXPECT_EQ(support::read_file(outside + "f"), "kept");
    EXPECT_EQ(std::filesystem::status(outside + "f").permissions(),
              std::filesystem::perms::owner_read);
}

struct RenameCase {
    const char* what;
    const char* from;
    const char* to;
    message::Status status;
    std::set<std::string> tree;  // afterwards
};

TEST_F(StorageTest, RenamesFilesAndFolders) {
    const std::set<std::string> as_before = {"d", "d/in", "e", "f=1", "g=2"};
    const RenameCase cases[] = {
        {"to a free name", "f", "h", status_ok, {"d", "d/in", "e", "h=1", "g=2"}},
        {"over a file", "f", "g", status_ok, {"d", "d/in", "e", "g=1"}},
        {"into a folder", "f", "d/f", status_ok, {"d", "d/f=1", "d/in", "e", "g=2"}},
        {"a folder", "d", "h", status_ok, {"e", "f=1", "g=2", "h", "h/in"}},
        {"by a detour", "./d/../f", "/h/", status_ok, {"d", "d/in", "e", "h=1", "g=2"}},
        {"what is missing", "x", "g", message::status_rename_failed, as_before},
        {"to itself", "f", "f", message::status_rename_failed, as_before},
        {"to itself otherwise written", "f", "d/../f", message::status_rename_failed, as_before},
        {"over a full folder", "f", "d", message::status_rename_failed, as_before},
        {"a folder over a full one", "e", "d", message::status_rename_failed, as_before},
        {"into itself", "d", "d/in/d", message::status_rename_failed, as_before},
        {"below a missing folder", "f", "x/f", message::status_rename_failed, as_before},
        {"below a file", "f", "g/f", message::status_rename_failed, as_before},
    };
    for (const RenameCase& row : cases) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(server.storage_folder());
        std::filesystem::create_directories(in_storage("d/in"));
        std::filesystem::create_directories(in_storage("e"));
        stored_file::put(in_storage("f"), "1");
        stored_file::put(in_storage("g"), "2");

        EXPECT_EQ(rename(row.from, row.to), row.status);
        std::set<std::string> tree;
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(server.storage_folder())) {
            const std::string name = std::filesystem::relative(entry, server.storage_folder());
            tree.insert(entry.is_directory() ? name
                                             : name + "=" + support::read_file(entry.path()));
        }
        EXPECT_EQ(tree, row.tree);
    }
    EXPECT_TRUE(
        logged("rename path failed (" + in_storage("x") + ") -> (" + in_storage("g") + ")"));
    EXPECT_TRUE(logged("unlink file failed (" + in_storage("d") + ")"));
}

TEST_F(StorageTest, KeepsOneFileUnderTwoNamesWhenOneIsRenamedToTheOther) {
    stored_file::put(in_storage("f"), "1");
    std::filesystem::create_hard_link(in_storage("f"), in_storage("g"));
    EXPECT_EQ(rename("f", "g"), message::status_rename_failed);
    EXPECT_EQ(support::read_file(in_storage("f")), "1");
    EXPECT_EQ(support::read_file(in_storage("g")), "1");
}

TEST_F(StorageTest, ServesItAllWhileAnUploadRuns) {
    ASSERT_EQ(peer.prepare(request::Upload{.path = "up", .size = 10}).status,
              message::status_file_incomplete);
    peer.send_file_data("12345");
    EXPECT_EQ(create("d/e"), status_ok);
    EXPECT_EQ(rename("d/e", "d/f"), status_ok);
    EXPECT_EQ(listed("d").size(), 1);
    EXPECT_EQ(remove("d"), status_ok);
    EXPECT_EQ(peer.node_count(), 1);
    EXPECT_EQ(listing::parse(peer.storage_information().text).size(), 1);
    EXPECT_EQ(peer.ask(request::test_upload_data("swallowed")), status_ok);
    peer.send_file_data("67890");
    EXPECT_EQ(peer.finish_upload(), status_ok);
    EXPECT_EQ(support::read_file(in_storage("up")), "1234567890");
}

}  // namespace
