#include "src/norvane_transmit_service/path_mapping.h"

#include <gtest/gtest.h>

#include "tests/unit/src/served_root.h"

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

class PathMapping : public testing::Test {
  protected:
    std::string map(std::uint32_t user_id, const std::string& path, bool lower = false) const {
        return ServedRoot::service().make_transmit_path(2, user_id, path.c_str(), lower);
    }
    // With a storage 2 beside the usual one.
    bool start(ServedRoot::Setup setup, const std::string& directory = "/data") const {
        setup.further_items = ServedRoot::item("2", "Data", "false", directory);
        return served_.start(setup);
    }

    ServedRoot served_;
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
    EXPECT_EQ(map(499, "a"), "/data/0/499/a");
    EXPECT_EQ(map(500, "a"), "/data/500/500/a");
    EXPECT_EQ(map(1234, "a"), "/data/1000/1234/a");
    EXPECT_EQ(map(0, "a"), "/data/a");
}

TEST_F(PathMapping, WithoutUserFoldersAllUsersShareThePath) {
    ASSERT_TRUE(start({.group_by_user_id = "true"}));
    EXPECT_EQ(map(1234, "a"), "/data/a");
}

// The system refuses a path that is too long; a part of it would be another path.
TEST_F(PathMapping, NoPathIsCut) {
    ASSERT_TRUE(start({}));
    const std::string name(5000, 'n');
    EXPECT_EQ(map(0, name), "/data/" + name);
    EXPECT_EQ(map(1, name), "/data/" + name);
}

TEST_F(PathMapping, OnlyWhatIsCreatedIsFoldedToLowerCase) {
    ASSERT_TRUE(start({.pathname_use_lower = "true"}, "/Data//In/"));
    EXPECT_EQ(map(0, "Abc\xC3\x84.TXT", true), "/data/in/abc\xC3\x84.txt");
    EXPECT_EQ(map(0, "Abc.TXT", false), "/data/in/Abc.TXT");
    ASSERT_TRUE(start({}, "/Data//In/"));
    EXPECT_EQ(map(0, "Abc.TXT", true), "/Data/In/Abc.TXT");
}

TEST_F(PathMapping, AnUnknownStorageHasNoPaths) {
    EXPECT_FALSE(ServedRoot::service().is_storage_valid(2));
    EXPECT_EQ(map(0, "a"), "");
    EXPECT_NE(served_.run_log().find("make transmit path failure, invalid storage id: 2"),
              std::string::npos);
}

TEST_F(PathMapping, TheStorageListNamesWhatIsShownInRisingOrder) {
    ASSERT_TRUE(
        served_.start({.further_items = ServedRoot::item("10", "Ten", "true", "/data") +
                                        ServedRoot::item("3", "Hidden", "false", "/data") +
                                        ServedRoot::item("007", "A &amp; B", "true", "/data")}));
    std::string document;
    ASSERT_TRUE(ServedRoot::service().make_storage_information(document));
    EXPECT_NE(document.find("<root><storage id=\"1\" name=\"Public\"/>"
                            "<storage id=\"007\" name=\"A &amp; B\"/>"
                            "<storage id=\"10\" name=\"Ten\"/></root>"),
              std::string::npos)
        << document;
    EXPECT_TRUE(ServedRoot::service().is_storage_valid(3));
}
