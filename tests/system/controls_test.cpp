#include <gtest/gtest.h>

#include <list>
#include <string>

#include "tests/support/files.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// What a client can set or measure on its own connection.
namespace {

using message::status_ok;

constexpr std::int64_t chunk = 65536;
constexpr std::size_t chunks_at_most = 500;    // in one batch
constexpr std::size_t chunks_to_the_mark = 8;  // of unsent bytes, at which a batch ends

class ControlsTest : public ServerTest {
  protected:
    // How many chunks of a download come before the answer to a request that was sent together
    // with the download's: as many as the first batch holds.
    static std::size_t first_batch(Peer& client, std::size_t enough) {
        EXPECT_EQ(client.prepare(request::Download{.path = "long"}).status, status_ok);
        client.send(request::download_file_data(0) + request::check_storage_id(1));
        std::size_t chunks = 0;
        while (chunks < enough) {
            const std::uint16_t type = client.receive_type();
            if (type == message::CheckStorageId::response_type) {
                client.receive_bytes(2);
                break;
            }
            const auto data = client.receive_after<message::DataResponse>(type);
            client.receive_bytes(data.data_length);
            ++chunks;
        }
        return chunks;
    }

    std::string transmit_list() const {
        support::RawSocket socket(server.command_port(), Peer::default_limit);
        socket.send("GET /sys/transmit_list HTTP/1.1\r\n\r\n");
        socket.finish_sending();
        return socket.receive_to_end();
    }
};

TEST_F(ControlsTest, SwallowsAndSuppliesTestData) {
    for (const std::uint16_t length : std::initializer_list<std::uint16_t>{0, 1, 4096, 65535}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(peer.ask(request::test_upload_data(std::string(length, 'x'))), status_ok);
        peer.send(request::test_download_data(length));
        const auto response = peer.receive<message::TestDownloadData>();
        EXPECT_EQ(response.status, status_ok);
        EXPECT_EQ(response.data_length, length);
        EXPECT_EQ(peer.receive_bytes(length), std::string(length, '\0'));
    }
}

TEST_F(ControlsTest, SetsTheLengthOfADownloadsBatches) {
    std::string bytes = support::random_bytes(chunks_at_most * chunk + 5 * chunk, 6);
    stored_file::put(in_storage("long"), bytes);
    struct Speed {
        std::uint32_t limit;
        std::size_t chunks;
    };
    const Speed speeds[] = {{0, 1}, {65536, 1}, {2 * chunk, 2}, {0, 1}};
    EXPECT_EQ(first_batch(peer, 10), 1) << "no limit was set";
    // All stay connected: what one has been sent in this second would count for who comes after.
    std::list<Peer> clients;
    for (const Speed& speed : speeds) {
        Peer& client = clients.emplace_back(server.transmit_port());
        EXPECT_EQ(client.ask(request::set_transmit_speed(speed.limit)), status_ok);
        EXPECT_EQ(first_batch(client, 10), speed.chunks) << "limit " << speed.limit;
    }
    Peer& client = clients.emplace_back(server.transmit_port());
    EXPECT_EQ(client.ask(request::set_transmit_speed(4294967295)), status_ok);
    EXPECT_EQ(first_batch(client, chunks_at_most), chunks_to_the_mark) << "without a limit";
}

TEST_F(ControlsTest, KeepsNothingOfAConnectionButItsLimit) {
    stored_file::put(in_storage("long"), std::string((chunks_at_most + 5) * chunk, 'x'));
    {
        Peer former(server.transmit_port());
        ASSERT_EQ(former.ask(request::set_transmit_speed(4294967295)), status_ok);
        ASSERT_EQ(former.ask(request::set_user_information("{\"user\":\"former\"}")), status_ok);
        ASSERT_EQ(former.prepare(request::Upload{.path = "n", .size = 10}).status,
                  message::status_file_incomplete);
        former.send_file_data("12345");
        ASSERT_EQ(former.ask(request::check_storage_id(1)), status_ok);
        EXPECT_NE(transmit_list().find("\"node_user_info\":{\"user\":\"former\"}"),
                  std::string::npos);
    }
    ASSERT_TRUE(await([&] { return peer.node_count() == 1; }));
    Peer next(server.transmit_port());
    EXPECT_EQ(next.finish_upload(), message::status_invalid_connection_data);
    const std::string list = transmit_list();
    EXPECT_EQ(list.find("former"), std::string::npos) << list;
    EXPECT_EQ(list.find("upload"), std::string::npos) << list;
    EXPECT_EQ(first_batch(next, chunks_at_most), chunks_to_the_mark);
}

TEST_F(ControlsTest, RepairsTheTextThatDescribesAClient) {
    const std::string longest = "{\"a\":\"" + std::string(1023 - 8, 'x') + "\"}";
    const std::pair<std::string, std::string> texts[] = {
        {"{\"user\":\"ann\"}", "{\"user\":\"ann\"}"},
        {" \t\v\r\n\f{\"a\":1}\f\n\r\v\t ", "{\"a\":1}"},
        {"{a\\b\\\\}", "{ab}"},
        {"name=x", "{}"},
        {"", "{}"},
        {"{", "{}"},
        {"}{", "{}"},
        {"\\{\\}", "{}"},
        {longest, longest},
        {longest.substr(0, 10) + "x" + longest.substr(10), "{}"},
        {std::string(65535, '{'), "{}"},
        {std::string("{\0}", 3), "{}"},
        {"{wrong json", "{}"},
        {"{wrong json}", "{wrong json}"},
    };
    for (const auto& [text, stored] : texts) {
        SCOPED_TRACE(text.substr(0, 50));
        EXPECT_EQ(peer.ask(request::set_user_information(text)), status_ok);
        // The list is renewed when a connection comes or goes.
        Peer(server.transmit_port()).ask(request::check_storage_id(1));
        EXPECT_NE(transmit_list().find("\"node_user_info\":" + stored + "}"), std::string::npos);
    }
}

TEST_F(ControlsTest, GivesUpATransferOnDemand) {
    EXPECT_EQ(peer.ask(request::cleanup_connection()), status_ok);
    ASSERT_EQ(peer.prepare(request::Upload{.path = "n", .size = 10}).status,
              message::status_file_incomplete);
    peer.send_file_data("12345");
    EXPECT_EQ(peer.ask(request::cleanup_connection()), status_ok);
    EXPECT_EQ(stored_file::time_of(in_storage("n.tcp")), 1000);
    EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);
    EXPECT_EQ(peer.prepare(request::Upload{.path = "n", .size = 10}),
              (UploadPrepared{message::status_file_incomplete, 5}));
    peer.send_file_data("67890");
    EXPECT_EQ(peer.finish_upload(), status_ok);
}

}  // namespace
