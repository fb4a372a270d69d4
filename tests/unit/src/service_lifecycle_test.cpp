#include <gtest/gtest.h>

#include <thread>

#include "tests/unit/src/running_service.h"

namespace {

class ServiceLifecycle : public RunningService {
  protected:
    support::ScriptedConnection connection;
};

}  // namespace

TEST_F(ServiceLifecycle, TellsItsStartAndItsStop) {
    service.exit();
    EXPECT_EQ(debug_log(), "");
    ASSERT_TRUE(start({}));
    service.exit();
    service.exit();
    const std::string log = debug_log();
    std::size_t position = 0;
    for (const char* text :
         {"init begin", "transmit listen on (here:0)", "command listen on (0)", "init success",
          "tcp transmit service exit begin", "tcp manager exit begin", "tcp manager exit end",
          "tcp transmit service exit end"}) {
        position = log.find(text, position);
        ASSERT_NE(position, std::string::npos) << text << " in\n" << log;
    }
    EXPECT_EQ(log.find("exit", position + 40), std::string::npos);
    EXPECT_EQ(run_log(), "");
}

TEST_F(ServiceLifecycle, StopsWhenAPortIsTaken) {
    Kestin::Net::TcpManager other;
    other.set_service(&service);
    const std::uint16_t taken = support::free_port();
    ASSERT_TRUE(other.init(0, 1, &taken, 1));
    EXPECT_FALSE(start({.command_port = std::to_string(taken)}));
    EXPECT_NE(run_log().find("tcp transmit service init failure: start tcp manager (0, " +
                             std::to_string(taken) + ") failure"),
              std::string::npos);
    EXPECT_FALSE(service.on_accept(&connection, other_port));
    EXPECT_TRUE(start({}));
}

TEST_F(ServiceLifecycle, RefusesEveryCallbackWhileItIsStopped) {
    EXPECT_FALSE(service.on_accept(&connection, transmit_port));
    EXPECT_FALSE(service.on_recv(&connection));
    EXPECT_FALSE(service.on_send(&connection));
    EXPECT_FALSE(service.on_close(&connection));
    EXPECT_TRUE(service.on_connect(nullptr, false));
}

TEST_F(ServiceLifecycle, BindsANodeToAConnectionOfTheTransmitPort) {
    ASSERT_TRUE(start({}));
    EXPECT_FALSE(service.on_accept(nullptr, transmit_port));
    EXPECT_TRUE(service.on_accept(&connection, transmit_port));
    EXPECT_NE(connection.get_user_data(), nullptr);
    EXPECT_EQ(service.get_node_count(), 1U);
    EXPECT_TRUE(service.on_send(&connection));
    EXPECT_TRUE(service.on_close(&connection));
    EXPECT_EQ(connection.get_user_data(), nullptr);
    EXPECT_EQ(service.get_node_count(), 0U);
}

TEST_F(ServiceLifecycle, LeavesAConnectionOfTheCommandPortWithoutANode) {
    ASSERT_TRUE(start({}));
    EXPECT_TRUE(service.on_accept(&connection, other_port));
    EXPECT_EQ(connection.get_user_data(), nullptr);
    EXPECT_TRUE(service.on_send(&connection));
    EXPECT_FALSE(service.on_close(&connection));
    EXPECT_EQ(service.get_node_count(), 0U);
}

TEST_F(ServiceLifecycle, AfterAStopNodesServeAgain) {
    ASSERT_TRUE(start({}));
    ASSERT_TRUE(service.on_accept(&connection, transmit_port));
    service.exit();
    EXPECT_EQ(service.get_node_count(), 0U);
    ASSERT_TRUE(start({}));
    for (int round = 0; round < 2; ++round) {
        support::ScriptedConnection next;
        EXPECT_TRUE(service.on_accept(&next, transmit_port));
        next.feed(std::string{0, 22});
        EXPECT_TRUE(service.on_recv(&next));
        EXPECT_EQ(next.take_sent(), (std::string{0, 23, 0, 0, 0, 1}));
        EXPECT_TRUE(service.on_close(&next));
    }
}

TEST_F(ServiceLifecycle, KeepsTheSuffixOfItsLastConfiguration) {
    ASSERT_TRUE(start({}));
    EXPECT_EQ(service.get_temp_file_suffix(), ".part");
    service.exit();
    EXPECT_EQ(service.get_temp_file_suffix(), ".part");
    EXPECT_FALSE(service.is_storage_valid(1));
}

TEST_F(ServiceLifecycle, AFileIsClaimedOnceUntilItIsGivenBack) {
    ASSERT_TRUE(start({}));
    EXPECT_TRUE(service.add_upload_file("/data/a"));
    EXPECT_FALSE(service.add_upload_file("/data/a"));
    EXPECT_TRUE(service.add_upload_file("/data/b"));
    service.remove_upload_file("/data/a");
    service.remove_upload_file("/data/none");
    EXPECT_TRUE(service.add_upload_file("/data/a"));
    service.exit();
    EXPECT_TRUE(service.add_upload_file("/data/a"));
    service.remove_upload_file("/data/a");
}
