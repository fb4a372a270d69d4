#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/server_test.h"

// Many clients on few names: whoever wins, a file that stands under its name is whole and of one
// client. Under the thread sanitizer any data race ends the server with a code of its own. For how
// long it goes on is TRANSMIT_RACE_SECONDS; without it, each client has a few turns.
namespace {

using message::status_ok;

constexpr unsigned clients = 32;
constexpr unsigned names = 8;
constexpr int turns = 25;

// The file of a number, which stands at its beginning and is its time as well: two such files are
// never taken for one another.
std::string file_of(std::int64_t number) {
    const auto seed = static_cast<std::uint64_t>(number);
    return std::string(reinterpret_cast<const char*>(&number), sizeof number) +
           support::random_bytes(seed % 7 == 0 ? 300'000 : seed % 20'000, seed);
}

bool is_whole(const std::string& bytes) {
    std::int64_t number = 0;
    if (bytes.size() < sizeof number) {
        return false;
    }
    std::memcpy(&number, bytes.data(), sizeof number);
    return bytes == file_of(number);
}

std::string name_of(std::size_t which) {
    return "name" + std::to_string(which);
}

struct Tally {
    std::atomic<int> placed = 0;
    std::atomic<int> in_use = 0;
    std::atomic<int> downloaded = 0;
    std::atomic<int> others = 0;
};

class Racer {
  public:
    Racer(std::uint16_t port, unsigned client, Tally& tally)
        : port_(port), number_(client * std::int64_t{1'000'000}), tally_(tally), random_(client) {
        connect();
    }

    void take_turn() {
        switch (random_() % 8) {
            case 0:
            case 1:
            case 2:
                return upload();
            case 3:
                return download();
            case 4:
                peer_->ask(request::delete_path(any_name()));
                break;
            case 5:
                peer_->ask(request::rename_path(any_name(), any_name()));
                break;
            case 6:
                EXPECT_EQ(peer_->list("").status, message::status_path_is_directory);
                break;
            default:
                peer_->ask(
                    request::set_user_information(R"({"client":)" + std::to_string(number_) + "}"));
        }
        ++tally_.others;
    }

  private:
    void connect() { peer_ = std::make_unique<Peer>(port_); }
    std::string any_name() { return name_of(random_() % names); }

    // A new file, or the one that broke off before: to its end, or broken off on the way.
    void upload() {
        number_ += random_() % 2 == 0 ? 1 : 0;
        const std::string bytes = file_of(number_);
        const bool encrypted = random_() % 4 == 0;
        const UploadPrepared prepared =
            peer_->prepare(request::Upload{.path = any_name(),
                                           .size = static_cast<std::int64_t>(bytes.size()),
                                           .time = number_,
                                           .encrypted = encrypted});
        if (prepared.status != message::status_file_incomplete) {
            EXPECT_TRUE(prepared.status == status_ok ||
                        prepared.status == message::status_file_in_use)
                << prepared;
            tally_.in_use += prepared.status == message::status_file_in_use ? 1 : 0;
            return;
        }
        const std::string rest = bytes.substr(static_cast<std::size_t>(prepared.offset));
        switch (random_() % 4) {
            case 0:
                peer_->send_file_data(rest.substr(0, rest.size() / 2), 8192, encrypted);
                connect();
                break;
            case 1:
                peer_->send_file_data(rest.substr(0, rest.size() / 3), 8192, encrypted);
                peer_->ask(request::cleanup_connection());
                break;
            default:
                peer_->send_file_data(rest, 8192, encrypted);
                EXPECT_EQ(peer_->finish_upload(), status_ok);
                ++tally_.placed;
        }
    }

    // Whatever happens to the name meanwhile, the stream is of one file.
    void download() {
        const bool encrypted = random_() % 2 == 0;
        if (peer_->prepare(request::Download{.path = any_name(), .encrypted = encrypted}).status !=
            status_ok) {
            return;
        }
        const Stream stream = peer_->stream_from(0, encrypted);
        if (stream.status == status_ok) {
            EXPECT_TRUE(is_whole(stream.plain)) << stream.plain.size();
            ++tally_.downloaded;
        }
    }

    std::uint16_t port_;
    std::int64_t number_;
    Tally& tally_;
    std::mt19937 random_;
    std::unique_ptr<Peer> peer_;
};

class RaceTest : public ServerTest {
  protected:
    void race(unsigned client, Tally& tally) const {
        Racer racer(server.transmit_port(), client, tally);
        for (int turn = 0; turn < turns || std::chrono::steady_clock::now() < end_; ++turn) {
            racer.take_turn();
        }
    }

    // Asks for both documents until the last client has gone.
    void watch(const std::atomic<unsigned>& racing) const {
        HttpPeer http(server.command_port());
        while (racing > 0) {
            const auto list = nlohmann::json::parse(http.get("/sys/transmit_list").body);
            for (const auto& node : list["transmit_nodes"]) {
                const std::string file = node["node_filename"];
                EXPECT_TRUE(file.empty() || file.starts_with(server.storage_folder())) << file;
            }
            const auto totals = nlohmann::json::parse(http.get("/sys/transmit_statistics").body);
            EXPECT_TRUE(totals["transmit_statistics"].is_object());
        }
    }

  private:
    static std::chrono::seconds wanted() {
        const char* seconds = std::getenv("TRANSMIT_RACE_SECONDS");
        return std::chrono::seconds(seconds == nullptr ? 0 : std::atoi(seconds));
    }
    const std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + wanted();
};

TEST_F(RaceTest, AFileInItsPlaceIsWholeAndOfOneClient) {
    Tally tally;
    std::atomic<unsigned> racing = clients;
    {
        std::vector<std::jthread> threads;
        threads.emplace_back([&] { watch(racing); });
        for (unsigned client = 1; client <= clients; ++client) {
            threads.emplace_back([&, client] {
                race(client, tally);
                --racing;
            });
        }
    }
    std::cout << tally.placed << " uploads placed, " << tally.in_use << " refused as in use, "
              << tally.downloaded << " downloads, " << tally.others << " other requests\n";
    EXPECT_GT(tally.placed, 0);
    for (const auto& entry : std::filesystem::directory_iterator(server.storage_folder())) {
        if (entry.path().extension() != ".tcp") {
            EXPECT_TRUE(is_whole(support::read_file(entry.path()))) << entry.path();
        }
    }
    // All have gone, and hold nothing any more.
    ASSERT_TRUE(await([&] { return peer.node_count() == 1; }));
    for (unsigned which = 0; which < names; ++which) {
        EXPECT_EQ(peer.upload({.path = name_of(which), .size = 2, .time = 1}, "ok"), status_ok);
    }
}

// Several servers on one folder: only locks keep them apart.
class SharedFolderTest : public testing::Test {
  protected:
    static constexpr std::size_t servers = 3;
    using Outcomes = std::array<message::Status, servers>;

    SharedFolderTest() {
        support::ServerSettings settings;
        settings.storages = {{.id = 1, .directory = folder_.path() + "shared"}};
        for (std::size_t number = 0; number < servers; ++number) {
            running_.push_back(std::make_unique<support::RunningServer>(settings));
            peers_.push_back(std::make_unique<Peer>(running_.back()->transmit_port()));
        }
    }

    static std::string content_of(std::size_t client) {
        return std::string(200'000 + client, static_cast<char>('a' + client));
    }

    // All prepare at once. `together`: nobody sends before all have their answer.
    Outcomes race(const std::string& name, bool together) {
        Outcomes outcomes{};
        std::barrier meet(servers);
        std::vector<std::jthread> threads;
        for (std::size_t client = 0; client < servers; ++client) {
            threads.emplace_back([&, client] {
                const std::string bytes = content_of(client);
                Peer& peer = *peers_[client];
                meet.arrive_and_wait();
                message::Status status =
                    peer.prepare(request::Upload{.path = name,
                                                 .size = std::ssize(bytes),
                                                 .time = static_cast<std::int64_t>(client)})
                        .status;
                if (together) {
                    meet.arrive_and_wait();
                }
                if (status == message::status_file_incomplete) {
                    peer.send_file_data(bytes);
                    status = peer.finish_upload();
                }
                outcomes.at(client) = status;
            });
        }
        threads.clear();
        return outcomes;
    }

    support::TemporaryFolder folder_;
    std::vector<std::unique_ptr<support::RunningServer>> running_;
    std::vector<std::unique_ptr<Peer>> peers_;
};

TEST_F(SharedFolderTest, WhatStandsThereInTheEndIsOneClientsThatWasToldSo) {
    const char* wish = std::getenv("TRANSMIT_SHARED_RACES");
    const int races = wish == nullptr ? 50 : std::atoi(wish);
    int placed = 0;
    for (int number = 0; number < races; ++number) {
        const std::string name = std::to_string(number);
        const Outcomes outcomes = race(name, number % 2 == 0);
        const std::string there = support::read_file(folder_.path() + "shared/" + name);
        bool is_right = false;
        for (std::size_t client = 0; client < servers; ++client) {
            const bool was_told = outcomes.at(client) == status_ok;
            EXPECT_TRUE(was_told || outcomes.at(client) == message::status_file_in_use)
                << outcomes.at(client);
            is_right = is_right || (was_told && there == content_of(client));
            placed += was_told ? 1 : 0;
        }
        EXPECT_TRUE(is_right) << number << ": " << there.size() << " bytes";
    }
    std::cout << races << " races, " << placed << " uploads answered with 0\n";
}

}  // namespace
