#include "src/roster/roster.h"

#include <gtest/gtest.h>

namespace {

class FakeNode final : public PublishedNode {
  public:
    explicit FakeNode(std::uint64_t id) : id_(id) {}

    NodeRecord& get_node_record(NodeRecord& out) override {
        out = NodeRecord{};
        out.node_id = id_;
        return out;
    }

  private:
    std::uint64_t id_;
};

// The ids, each behind a blank.
void write_ids(const std::list<NodeRecord>& records, std::string& out) {
    for (const NodeRecord& record : records) {
        out += ' ' + std::to_string(record.node_id);
    }
}

class RosterTest : public testing::Test {
  protected:
    RosterTest() {
        for (FakeNode* node : {&first, &second, &third}) {
            roster.add(node);
        }
        roster.note_change();
    }

    Roster roster{write_ids};
    FakeNode first{1};
    FakeNode second{2};
    FakeNode third{3};
};

TEST_F(RosterTest, NodesStandOldestFirstWhicheverLeave) {
    EXPECT_EQ(*roster.document(), " 1 2 3");
    roster.remove(&second);
    roster.add(&second);
    roster.note_change();
    EXPECT_EQ(*roster.document(), " 1 3 2");
    EXPECT_EQ(roster.size(), 3U);
}

TEST_F(RosterTest, ANodeLeavesWithAllItsEntries) {
    roster.add(&first);
    roster.remove(&first);
    EXPECT_EQ(*roster.document(), " 2 3");
    roster.remove(&first);
    EXPECT_EQ(roster.size(), 2U);
}

TEST_F(RosterTest, AllReadersOfASnapshotShareItsDocument) {
    const auto document = roster.document();
    EXPECT_EQ(roster.document(), document);
    roster.note_change();
    const auto next = roster.document();
    EXPECT_NE(next, document);
    EXPECT_EQ(*next, *document);
}

TEST_F(RosterTest, ClearingGivesTheNodesBackAndForgetsTheSnapshot) {
    const auto document = roster.document();
    EXPECT_EQ(roster.clear(), (std::list<PublishedNode*>{&first, &second, &third}));
    EXPECT_EQ(roster.statistics().last_data_update_time, 0U);
    EXPECT_EQ(*roster.document(), "");
    EXPECT_EQ(*document, " 1 2 3");
}

}  // namespace
