#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"
#include "trials/faulty_server.h"

// A disk that hangs, as a mount does whose server has gone: calls on its files don't return.
namespace {

using measure::measured;
using measure::mebibyte;
using measure::since;
using measure::sized;
using message::status_ok;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr request::Place hung_storage{.storage_id = 1};
constexpr request::Place well_storage{.storage_id = 2};

support::ServerSettings two_storages() {
    support::ServerSettings settings;
    settings.storages = {{.id = 1, .name = "Hung", .directory = "storage/hanging"},
                         {.id = 2, .name = "Well", .directory = "storage/well"}};
    return settings;
}

class HungDiskTrial : public testing::Test {
  protected:
    HungDiskTrial() {
        stored_file::put(server.storage_folder(1) + "long", std::string(8 * mebibyte, 'x'));
        stored_file::put(server.storage_folder(2) + "f", "bytes");
    }

    // Clients that are in the middle of a transfer on the disk when it hangs, then leave or ask for
    // more, and many others that ask for something there.
    void hang() {
        for (int i = 0; i < 20; ++i) {
            const auto uploader = connect();
            const std::string name = "upload " + std::to_string(i);
            EXPECT_EQ(uploader->prepare(request::Upload{.path = name, .size = 100}).status,
                      message::status_file_incomplete);
            const auto downloader = connect();
            EXPECT_EQ(downloader->prepare(request::Download{.path = "long"}).status, status_ok);
            downloader->send(request::download_file_data(0));
        }
        faulty.set_hanging(true);
        for (std::size_t i = 0; i < clients.size(); i += 2) {
            clients[i]->send(request::upload_file_data("bytes"));
            clients[i]->socket().reset();
        }
        for (int i = 0; i < sized(100, 500); ++i) {
            connect()->send(request::get_path_content("", hung_storage));
            connect()->send(request::download_file_prepare({.path = "long"}));
        }
        EXPECT_TRUE(await([&] { return faulty.hanging_calls() > 10; }));
    }

    std::shared_ptr<Peer> connect() {
        return clients.emplace_back(std::make_shared<Peer>(server.transmit_port()));
    }

    trials::FaultyServer faulty{two_storages()};
    support::RunningServer& server = faulty.server();
    std::vector<std::shared_ptr<Peer>> clients;
};

TEST_F(HungDiskTrial, OtherStoragesAndTheCommandPortAreServed) {
    hang();
    milliseconds longest{0};
    for (int i = 0; i < 20; ++i) {
        const auto start = steady_clock::now();
        Peer other(server.transmit_port());
        const request::Upload upload{
            .path = "g" + std::to_string(i), .size = 5, .storage_id = well_storage.storage_id};
        EXPECT_EQ(other.upload(upload, "bytes"), status_ok);
        EXPECT_EQ(other.list("", well_storage).status, message::status_path_is_directory);
        EXPECT_EQ(
            other.prepare(request::Download{.path = "f", .storage_id = well_storage.storage_id})
                .size,
            5);
        EXPECT_EQ(other.stream_from(0).plain, "bytes");
        EXPECT_EQ(HttpPeer(server.command_port()).get("/sys/transmit_list").status, "200 OK");
        longest = std::max(longest, since(start));
    }
    measured() << "while " << faulty.hanging_calls() << " calls on one disk hang and "
               << clients.size()
               << " clients ask for more of it, another client's upload, listing, "
               << "download and list of nodes took " << longest.count() << " ms at most\n";

    faulty.set_hanging(false);
    EXPECT_TRUE(await([&] { return faulty.hanging_calls() == 0; }));
    EXPECT_EQ(Peer(server.transmit_port()).list("", hung_storage).status,
              message::status_path_is_directory);
    clients.clear();
    EXPECT_EQ(server.stop(), support::exited_with(0));
}

TEST_F(HungDiskTrial, AStopEndsTheServer) {
    hang();
    const auto start = steady_clock::now();
    EXPECT_EQ(server.stop_by(SIGTERM), support::exited_with(0));
    measured() << "stopped in " << since(start).count() << " ms while a disk hangs\n";
}

}  // namespace
