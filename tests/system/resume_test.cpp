#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <string>

#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// Transfers that are cut somewhere and go on: in the end the file has arrived byte for byte, and
// what had been stored didn't travel twice.
namespace {

using message::status_ok;

constexpr std::int64_t file_time = 1234567890;

enum class Cut { connection_reset, server_terminated, server_killed };

class ResumeTest : public testing::TestWithParam<unsigned> {
  protected:
    ResumeTest() : generator(GetParam()), cut(Cut(GetParam() % 3)) {}

    std::size_t random_up_to(std::size_t most) {
        return std::uniform_int_distribution<std::size_t>(0, most)(generator);
    }

    // Ends the server, the hard way or in good order, and starts it again.
    void restart_server() {
        if (cut == Cut::server_killed) {
            EXPECT_EQ(server.stop_by(SIGKILL), support::ended_by(SIGKILL));
        } else {
            EXPECT_EQ(server.stop_by(SIGTERM), support::exited_with(0));
        }
        server.start();
    }

    // Returns when the server, or the next one in its place, has let go of the transfer.
    void break_off(Peer& peer) {
        if (cut != Cut::connection_reset) {
            restart_server();
            return;
        }
        peer.socket().reset();
        Peer observer(server.transmit_port());
        ASSERT_TRUE(await([&] { return observer.node_count() == 1; }));
    }

    std::string in_storage(const std::string& name) const { return server.storage_folder() + name; }

    std::mt19937 generator;
    Cut cut;
    support::RunningServer server;
};

TEST_P(ResumeTest, AnUploadGoesOnFromWhatWasStored) {
    const std::string bytes = support::random_bytes(3000000 + random_up_to(1000000), GetParam());
    const std::size_t block = 1 + random_up_to(100000);
    const std::size_t stored = random_up_to(bytes.size() / block - 1) * block;
    const request::Upload upload{.path = "folder/file",
                                 .size = std::ssize(bytes),
                                 .time = file_time,
                                 .encrypted = GetParam() % 2 == 1};
    {
        Peer peer(server.transmit_port());
        ASSERT_EQ(peer.prepare(upload), (UploadPrepared{message::status_file_incomplete, 0}));
        peer.send_file_data(std::string_view(bytes).substr(0, stored), block, upload.encrypted);
        ASSERT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
        const std::string next = request::upload_file_data(bytes.substr(stored, block));
        peer.send(std::string_view(next).substr(0, random_up_to(next.size() - 1)));
        break_off(peer);
    }
    Peer peer(server.transmit_port());
    const UploadPrepared prepared = peer.prepare(upload);
    ASSERT_EQ(prepared.status, message::status_file_incomplete);
    // A server that is killed can't stamp its file, which is then of no use to the next one.
    EXPECT_EQ(prepared.offset, cut == Cut::server_killed ? 0 : std::ssize(bytes.substr(0, stored)));
    peer.send_file_data(std::string_view(bytes).substr(static_cast<std::size_t>(prepared.offset)),
                        block, upload.encrypted);
    EXPECT_EQ(peer.finish_upload(), status_ok);
    EXPECT_EQ(support::sha256_of_file(in_storage("folder/file")), support::sha256(bytes));
    EXPECT_EQ(stored_file::time_of(in_storage("folder/file")), file_time);
    EXPECT_FALSE(stored_file::exists(in_storage("folder/file.tcp")));
}

INSTANTIATE_TEST_SUITE_P(TwentyCuts, ResumeTest, testing::Range(0U, 20U));

}  // namespace
