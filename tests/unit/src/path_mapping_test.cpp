#include "src/norvane_transmit_service/path_mapping.h"

#include <gtest/gtest.h>

#include "tests/unit/src/running_service.h"

TEST(CleanPath, RebuildsAPathFromItsComponents) {
    const std::pair<const char*, const char*> paths[] = {
        {"", "/"},
        {".", "/"},
        {"..", "/"},
        {"/", "/"},
        {"\\", "/"},
        {"../../x", "/x"},
        {"a/../../b", "/b"},
        {"a/b/..", "/a"},
        {"a/b/../", "/a/"},
        {"a/..", "/"},
        {"a/../", "/"},
        {"a\\b//c", "/a/b/c"},
        {"a/", "/a/"},
        {"a\\", "/a/"},
        {"a/./", "/a/"},
        {"/./a/.\\..\\..\\etc/passwd", "/etc/passwd"},
        {"C:/x", "/C:/x"},
        {"...", "/..."},
        {".. /x", "/.. /x"},
        {"a/ ..", "/a/ .."},
        {"   ", "/   "},
        {"a/ ", "/a/ /"},
        {"a/b\t\r\n", "/a/b\t\r\n"},
        {"a/\v\f", "/a/\v\f/"},
    };
    for (const auto& [in, out] : paths) {
        EXPECT_EQ(clean_path(in), out) << in;
    }
}

class PathMapping : public RunningService {
  protected:
    std::string map(std::uint32_t user_id, const std::string& path) const {
        return service.make_transmit_path(1, user_id, path.c_str(), false);
    }
};

TEST_F(PathMapping, UsersHaveFoldersOfTheirOwn) {
    ASSERT_TRUE(start({.use_user_id = "true"}));
    EXPECT_EQ(map(1234, "docs\\old\\..\\a.txt"), "/data/1234/docs/a.txt");
    EXPECT_EQ(map(1234, "../../x/"), "/data/1234/x");
    EXPECT_EQ(map(1234, ""), "/data/1234");
    EXPECT_EQ(map(0, "1234/a"), "/data/1234/a");
    EXPECT_EQ(map(0, ""), "/data");
    EXPECT_EQ(map(4294967295, "a"), "/data/-1/a");
}

TEST_F(PathMapping, UserFoldersCanBeGroupedByFiveHundred) {
    ASSERT_TRUE(start({.use_user_id = "true", .group_by_user_id = "true"}));
    EXPECT_EQ(map(1, "a"), "/data/0/1/a");
    EXPECT_EQ(map(499, "a"), "/data/0/499/a");
    EXPECT_EQ(map(500, "a"), "/data/500/500/a");
    EXPECT_EQ(map(1234, "a"), "/data/1000/1234/a");
    EXPECT_EQ(map(0, "a"), "/data/a");
}

TEST_F(PathMapping, WithoutUserFoldersAllUsersShareThePath) {
    ASSERT_TRUE(start({.group_by_user_id = "true"}));
    EXPECT_EQ(map(1234, "a"), "/data/a");
    EXPECT_EQ(map(1, "a"), "/data/a");
}

TEST_F(PathMapping, TheTextBehindTheStorageIsCutForAUser) {
    ASSERT_TRUE(start({}));
    const std::string name(5000, 'n');
    EXPECT_EQ(map(0, name), "/data/" + name);
    // 4095 characters, of which two are separators that the normal form drops to one.
    EXPECT_EQ(map(1, name), "/data/" + name.substr(0, 4093));
}

TEST_F(PathMapping, OnlyWhatIsCreatedIsFoldedToLowerCase) {
    ASSERT_TRUE(start({.pathname_use_lower = "true",
                       .storages = "<item><id>1</id><name>P</name><directory>/Data//In/"
                                   "</directory></item>"}));
    EXPECT_EQ(service.make_transmit_path(1, 0, "Abc.TXT", true), "/data/in/abc.txt");
    EXPECT_EQ(service.make_transmit_path(1, 0, "Abc.TXT", false), "/data/in/Abc.TXT");
    EXPECT_EQ(service.make_transmit_path(1, 0, "\xC3\x84", true), "/data/in/\xC3\x84");
    ASSERT_TRUE(start({}));
    EXPECT_EQ(service.make_transmit_path(1, 0, "Abc.TXT", true), "/data/Abc.TXT");
}

TEST_F(PathMapping, AnUnknownStorageHasNoPaths) {
    ASSERT_TRUE(start({}));
    EXPECT_TRUE(service.is_storage_valid(1));
    EXPECT_FALSE(service.is_storage_valid(0));
    EXPECT_EQ(service.make_transmit_path(0, 0, "a", false), "");
    EXPECT_NE(run_log().find("make transmit path failure, invalid storage id: 0"),
              std::string::npos);
}

TEST_F(PathMapping, TheStorageListNamesWhatIsShownInRisingOrder) {
    const auto storage = [](const std::string& id, const std::string& name,
                            const std::string& show) {
        return "<item><id>" + id + "</id><name>" + name + "</name><show>" + show +
               "</show><directory>/data</directory></item>";
    };
    ASSERT_TRUE(start({.storages = storage("10", "Ten", "true") + storage("3", "Hidden", "false") +
                                   storage("007", "A &amp; B", "true")}));
    std::string document;
    ASSERT_TRUE(service.make_storage_information(document));
    EXPECT_NE(document.find("<root><storage id=\"007\" name=\"A &amp; B\"/>"
                            "<storage id=\"10\" name=\"Ten\"/></root>"),
              std::string::npos)
        << document;
    EXPECT_TRUE(service.is_storage_valid(3));
    ASSERT_TRUE(start({.storages = ""}));
    ASSERT_TRUE(service.make_storage_information(document));
    EXPECT_NE(document.find("<root/>"), std::string::npos) << document;
}
