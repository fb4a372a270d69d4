#include "src/roster/tally.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kestin_base/clock.h"
#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

namespace {

NodeRecord node(NodeType type, double speed) {
    NodeRecord record;
    record.node_type = type;
    record.node_speed = speed;
    return record;
}

// set_user_information, type 18: its length, then the text.
std::string user_information(const std::string& text) {
    return std::string{0, 18, 0, static_cast<char>(text.size())} + text;
}

class Snapshot : public testing::Test {
  protected:
    Snapshot() { EXPECT_TRUE(served_.start({.update_interval = "5"})); }

    void accept(support::ScriptedConnection& connection) {
        EXPECT_TRUE(service.on_accept(&connection, served_.transmit_port()));
    }
    std::vector<NodeRecord> records() {
        std::list<NodeRecord> list;
        service.get_transmit_info(list);
        return {list.begin(), list.end()};
    }
    TransmitStatistics statistics() {
        TransmitStatistics statistics;
        service.get_transmit_statistics(statistics);
        return statistics;
    }

    ServedRoot served_;
    NorvaneTransmitService& service = ServedRoot::service();
    support::ScriptedConnection first;
    support::ScriptedConnection second;
};

}  // namespace

TEST(Tally, CountsEachKindAndItsSpeeds) {
    const TransmitStatistics totals =
        tally({node(NodeType::upload, 300), node(NodeType::upload, 0), node(NodeType::message, 999),
               node(NodeType::upload, 100), node(NodeType::download, 7),
               node(static_cast<NodeType>(9), 999)});
    EXPECT_EQ(totals.upload_connection_count, 3U);
    EXPECT_EQ(totals.upload_max_speed, 300);
    EXPECT_EQ(totals.upload_total_speed, 400);
    EXPECT_EQ(totals.download_connection_count, 1U);
    EXPECT_EQ(totals.download_max_speed, 7);
    EXPECT_EQ(totals.download_total_speed, 7);
    EXPECT_EQ(totals.message_connection_count, 2U);
}

TEST_F(Snapshot, ShowsBoundNodesOldestFirst) {
    first.peer_port = 1001;
    second.peer_port = 1002;
    accept(first);
    accept(second);
    ASSERT_EQ(records().size(), 2U);
    EXPECT_EQ(records()[0].node_port, 1001);
    EXPECT_EQ(records()[1].node_port, 1002);
    EXPECT_STREQ(records()[0].node_ip, "127.0.0.1");
    EXPECT_EQ(statistics().message_connection_count, 2U);
    service.on_close(&first);
    ASSERT_EQ(records().size(), 1U);
    EXPECT_EQ(records()[0].node_port, 1002);
}

TEST_F(Snapshot, IsTakenAtTheFirstQuestionAndNotByTheStatistics) {
    EXPECT_EQ(statistics().last_data_update_time, 0U);
    const std::uint64_t before = Kestin::Base::kestin_time();
    EXPECT_TRUE(records().empty());
    EXPECT_GE(statistics().last_data_update_time, before);
    accept(first);
    EXPECT_EQ(statistics().message_connection_count, 0U);
}

TEST_F(Snapshot, StaysUntilANodeComesOrGoes) {
    accept(first);
    records();
    first.feed(user_information("{1}"));
    ASSERT_TRUE(service.on_recv(&first));
    EXPECT_STREQ(records()[0].node_user_info, "{}");
    EXPECT_TRUE(service.on_accept(&second, served_.command_port()));
    EXPECT_FALSE(service.on_close(&second));
    EXPECT_STREQ(records()[0].node_user_info, "{}");
    accept(second);
    EXPECT_STREQ(records()[0].node_user_info, "{1}");
    first.feed(user_information("{2}"));
    ASSERT_TRUE(service.on_recv(&first));
    service.on_close(&second);
    EXPECT_STREQ(records()[0].node_user_info, "{2}");
}

TEST_F(Snapshot, IsForgottenWithTheService) {
    accept(first);
    ASSERT_EQ(records().size(), 1U);
    service.exit();
    EXPECT_EQ(statistics().last_data_update_time, 0U);
    EXPECT_TRUE(records().empty());
}

TEST_F(Snapshot, CanBeTakenWhileNodesComeWorkAndGo) {
    constexpr int rounds = 300;
    std::vector<std::jthread> peers;
    for (int peer = 0; peer < 3; ++peer) {
        peers.emplace_back([this] {
            for (int round = 0; round < rounds; ++round) {
                support::ScriptedConnection connection;
                accept(connection);
                connection.feed(user_information("{\"a\":\"bbbb\"}"));
                EXPECT_TRUE(service.on_recv(&connection));
                EXPECT_TRUE(service.on_close(&connection));
            }
        });
    }
    for (int round = 0; round < rounds; ++round) {
        for (const NodeRecord& record : records()) {
            const std::string info = record.node_user_info;
            EXPECT_TRUE(info == "{}" || info == "{\"a\":\"bbbb\"}") << info;
        }
        EXPECT_LE(statistics().message_connection_count, 3U);
    }
    peers.clear();
    EXPECT_TRUE(records().empty());
}
