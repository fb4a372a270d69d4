#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// The server ends in the middle of uploads, the hard way and in good order.
namespace {

using measure::measured;
using measure::since;
using measure::sized;
using message::status_file_incomplete;
using message::status_ok;
using std::chrono::steady_clock;

const std::string all_bytes = support::random_bytes(1 << 20, 7);

// What a version of a file holds follows from the version, which is the file's time.
std::string_view content_of(std::int64_t version) {
    const auto size = 100'000 + static_cast<std::size_t>(version) * 7919 % 200'000;
    return std::string_view(all_bytes).substr(static_cast<std::size_t>(version) * 13 % 500'000,
                                              size);
}

request::Upload upload_of(const std::string& name, std::int64_t version) {
    return {.path = name, .size = std::ssize(content_of(version)), .time = version};
}

class KillTrial : public testing::Test {
  protected:
    // Twenty clients put versions of their files until the server has gone, which it has when so
    // many blocks have been sent.
    void kill_during_uploads(int blocks) {
        std::atomic<int> left{blocks};
        std::vector<std::thread> clients;
        for (int client = 0; client < 20; ++client) {
            clients.emplace_back([&, client] { put_versions(std::to_string(client), left); });
        }
        while (left > 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(server_.stop_by(SIGKILL), support::ended_by(SIGKILL));
        for (std::thread& client : clients) {
            client.join();
        }
    }

    void put_versions(const std::string& name, std::atomic<int>& left) {
        try {
            Peer peer(server_.transmit_port());
            for (std::int64_t version = first_version_;; ++version) {
                EXPECT_EQ(peer.prepare(upload_of(name, version)).status, status_file_incomplete);
                const std::string_view bytes = content_of(version);
                for (std::size_t at = 0; at < bytes.size(); at += 30'000) {
                    peer.send_file_data(bytes.substr(at, 30'000));
                    --left;
                }
                EXPECT_EQ(peer.finish_upload(), status_ok);
            }
        } catch (const std::runtime_error&) {
            // The server has gone.
            left = 0;
        }
    }

    // What stands under a final name is one version, whole.
    void check_files() {
        for (const auto& entry : std::filesystem::directory_iterator(server_.storage_folder())) {
            const std::string path = entry.path();
            if (!path.ends_with(".tcp")) {
                ++files_;
                EXPECT_TRUE(support::read_file(path) == content_of(stored_file::time_of(path)))
                    << path;
            }
        }
    }

    support::RunningServer server_;
    std::int64_t first_version_ = 1;
    int files_ = 0;
};

TEST_F(KillTrial, NoKillLeavesAWrongFileUnderAFinalName) {
    const int kills = sized(10, 500);
    std::mt19937 generator(1);
    std::uniform_int_distribution<int> blocks(1, 400);
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        SCOPED_TRACE(kill);
        kill_during_uploads(blocks(generator));
        check_files();
        server_.start();
        first_version_ += 1000;
    }
    measured() << kills << " kills, " << files_ << " files under their final names looked at\n";
}

class StopTrial : public KillTrial, public testing::WithParamInterface<bool> {};

TEST_P(StopTrial, EveryUploadGoesOnFromWhatWasStored) {
    constexpr std::int64_t count = 50;
    std::vector<std::unique_ptr<Peer>> clients;
    for (std::int64_t version = 1; version <= count; ++version) {
        clients.push_back(std::make_unique<Peer>(server_.transmit_port()));
        Peer& client = *clients.back();
        ASSERT_EQ(client.prepare(upload_of(std::to_string(version), version)).status,
                  status_file_incomplete);
        client.send_file_data(content_of(version).substr(0, 60'000), 20'000);
        ASSERT_EQ(client.ask(request::check_storage_id(1)), status_ok);
        // A block that has come in part only.
        client.send(request::upload_file_data(content_of(version).substr(60'000, 20'000))
                        .substr(0, 10'000));
    }
    const auto start = steady_clock::now();
    EXPECT_EQ(GetParam() ? server_.stop_by(SIGTERM) : server_.stop(), support::exited_with(0));
    measured() << (GetParam() ? "SIGTERM" : "exit") << " during " << count << " uploads: ended in "
               << since(start).count() << " ms\n";
    server_.start();
    Peer peer(server_.transmit_port());
    for (std::int64_t version = 1; version <= count; ++version) {
        const std::string path = server_.storage_folder() + std::to_string(version);
        EXPECT_EQ(stored_file::time_of(path + ".tcp"), version);
        const request::Upload upload = upload_of(std::to_string(version), version);
        EXPECT_EQ(peer.prepare(upload), (UploadPrepared{status_file_incomplete, 60'000}));
        peer.send_file_data(content_of(version).substr(60'000));
        EXPECT_EQ(peer.finish_upload(), status_ok);
    }
    check_files();
    EXPECT_EQ(files_, count);
}

INSTANTIATE_TEST_SUITE_P(BothWays, StopTrial, testing::Bool());

}  // namespace
