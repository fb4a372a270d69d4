#include <gtest/gtest.h>

#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

namespace {

class ServiceLifecycle : public testing::Test {
  protected:
    ServedRoot served_;
    NorvaneTransmitService& service = ServedRoot::service();
    support::ScriptedConnection connection;
};

}  // namespace

TEST_F(ServiceLifecycle, TellsItsStartAndItsStopOnce) {
    service.exit();
    const std::string before = served_.debug_log();
    service.exit();
    EXPECT_EQ(served_.debug_log(), before);
    const std::string transmit_port = std::to_string(served_.transmit_port());
    const std::string command_port = std::to_string(served_.command_port());
    std::size_t position = 0;
    for (const std::string& text : {
             std::string("tcp transmit service init begin"),
             "tcp transmit service transmit listen on (127.0.0.1:" + transmit_port + ")",
             "tcp transmit service command listen on (" + command_port + ")",
             std::string("tcp transmit service init success"),
             std::string("tcp transmit service exit begin"),
             std::string("tcp manager exit begin"),
             std::string("tcp manager exit end"),
             std::string("tcp transmit service exit end"),
         }) {
        position = before.find(text, position);
        ASSERT_NE(position, std::string::npos) << text << " in\n" << before;
    }
    EXPECT_EQ(served_.run_log(), "");
}

TEST_F(ServiceLifecycle, StaysStoppedWhileAPortIsTaken) {
    service.exit();
    const std::uint16_t taken = served_.command_port();
    Kestin::Net::TcpManager other;
    other.set_service(&service);
    ASSERT_TRUE(other.init(0, 1, &taken, 1));
    EXPECT_FALSE(served_.start({}));
    EXPECT_NE(served_.run_log().find("tcp transmit service init failure: start tcp manager (" +
                                     std::to_string(served_.transmit_port()) + ", " +
                                     std::to_string(taken) + ") failure"),
              std::string::npos);
    EXPECT_FALSE(service.on_accept(&connection, taken));
    other.exit();
    EXPECT_TRUE(served_.start({}));
}

TEST_F(ServiceLifecycle, RefusesEveryCallbackWhileItIsStopped) {
    ASSERT_TRUE(service.on_accept(&connection, served_.transmit_port()));
    service.exit();
    support::ScriptedConnection late;
    EXPECT_FALSE(service.on_accept(&late, served_.transmit_port()));
    EXPECT_FALSE(service.on_recv(&connection));
    EXPECT_FALSE(service.on_send(&connection));
    EXPECT_FALSE(service.on_close(&connection));
    EXPECT_TRUE(service.on_connect(nullptr, false));
}

TEST_F(ServiceLifecycle, BindsANodeToAConnectionOfTheTransmitPortOnly) {
    EXPECT_FALSE(service.on_accept(nullptr, served_.transmit_port()));
    EXPECT_TRUE(service.on_accept(&connection, served_.transmit_port()));
    EXPECT_EQ(service.get_node_count(), 1U);
    support::ScriptedConnection http;
    EXPECT_TRUE(service.on_accept(&http, served_.command_port()));
    EXPECT_EQ(http.get_user_data(), nullptr);
    EXPECT_TRUE(service.on_send(&http));
    EXPECT_FALSE(service.on_close(&http));
    EXPECT_EQ(service.get_node_count(), 1U);
    EXPECT_TRUE(service.on_close(&connection));
    EXPECT_EQ(connection.get_user_data(), nullptr);
    EXPECT_EQ(service.get_node_count(), 0U);
}

TEST_F(ServiceLifecycle, AfterAStopNodesServeAgain) {
    ASSERT_TRUE(service.on_accept(&connection, served_.transmit_port()));
    service.exit();
    EXPECT_EQ(service.get_node_count(), 0U);
    ASSERT_TRUE(served_.start({}));
    for (int round = 0; round < 2; ++round) {
        support::ScriptedConnection next;
        EXPECT_TRUE(service.on_accept(&next, served_.transmit_port()));
        // get_norvane_node_count and its answer
        next.feed(std::string{0, 22});
        EXPECT_TRUE(service.on_recv(&next));
        EXPECT_EQ(next.take_sent(), (std::string{0, 23, 0, 0, 0, 1}));
        EXPECT_TRUE(service.on_close(&next));
    }
}

TEST_F(ServiceLifecycle, AFileIsClaimedOnceUntilItIsGivenBack) {
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

TEST_F(ServiceLifecycle, WithoutMemoryOneConnectionEndsAndItsNodeServesAgain) {
    connection.is_out_of_memory = true;
    EXPECT_FALSE(service.on_accept(&connection, served_.transmit_port()));
    EXPECT_EQ(connection.get_user_data(), nullptr);
    EXPECT_EQ(service.get_node_count(), 0U);
    EXPECT_NE(served_.run_log().find("out of memory, the connection ends"), std::string::npos);

    support::ScriptedConnection http;
    http.feed("GET /none HTTP/1.1\r\n\r\n");
    const std::string node_count{0, 22};
    ASSERT_TRUE(service.on_accept(&connection, served_.transmit_port()));
    connection.feed(node_count + node_count);
    for (support::ScriptedConnection* peer : {&connection, &http}) {
        peer->is_out_of_memory = true;
        EXPECT_FALSE(service.on_recv(peer));
        EXPECT_EQ(peer->take_sent(), "");
    }
    EXPECT_TRUE(service.on_close(&connection));
    EXPECT_EQ(service.get_node_count(), 0U);
}
