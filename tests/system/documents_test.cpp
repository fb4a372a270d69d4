#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/server_test.h"

// What the command port's two documents say of real connections and transfers.
namespace {

using message::status_file_incomplete;
using message::status_ok;
using nlohmann::json;

class DocumentsTest : public ServerTest {
  protected:
    explicit DocumentsTest(std::uint64_t update_interval = 1)
        : ServerTest({.update_interval = update_interval}), http(server.command_port()) {}

    json nodes() { return document("/sys/transmit_list").at("transmit_nodes"); }
    json statistics() { return document("/sys/transmit_statistics").at("transmit_statistics"); }

    HttpPeer http;

  private:
    // The parser takes nothing but well-formed JSON in UTF-8.
    json document(const std::string& url) {
        const Answer answer = http.get(url);
        EXPECT_EQ(answer.status, "200 OK");
        EXPECT_EQ(answer.type, "application/json");
        return json::parse(answer.body);
    }
};

// Uploads and downloads in turn, each on a connection of its own and never finished.
class Transfers {
  public:
    static constexpr std::size_t pair_count = 50;

    explicit Transfers(const support::RunningServer& server) : folder_(server.storage_folder()) {
        for (std::size_t i = 0; i < pair_count; ++i) {
            start_upload(clients_.emplace_back(server.transmit_port()), i);
            start_download(clients_.emplace_back(server.transmit_port()), i);
        }
    }

    Peer& upload(std::size_t i) { return clients_[2 * i]; }
    Peer& download(std::size_t i) { return clients_[2 * i + 1]; }

    std::string upload_path(std::size_t i) const { return folder_ + upload_name(i); }
    std::string download_path(std::size_t i) const { return folder_ + download_name(i); }
    // Half of each upload is sent from the start, so that its progress is 50 percent.
    static std::size_t upload_size(std::size_t i) { return 2000 * (i + 1) - 1; }
    static std::size_t download_size(std::size_t i) { return 1000 * (i + 1); }
    static json user_information(std::size_t i) { return {{"user", {{"number", i}}}}; }

    // Brings the uploads to their last byte in small steps, the downloads again and again.
    void move_on() {
        for (int step = 0; step < 20; ++step) {
            for (std::size_t i = 0; i < pair_count; ++i) {
                upload(i).send_file_data(std::string(50 * (i + 1), 'u'));
                EXPECT_EQ(download(i).stream_from(0).plain.size(), download_size(i));
            }
        }
    }

  private:
    static std::string upload_name(std::size_t i) { return "up" + std::to_string(i); }
    static std::string download_name(std::size_t i) { return "down" + std::to_string(i); }

    static void start_upload(Peer& peer, std::size_t i) {
        EXPECT_EQ(peer.ask(request::set_user_information(user_information(i).dump())), status_ok);
        const UploadPrepared prepared = peer.prepare(request::Upload{
            .path = upload_name(i), .size = static_cast<std::int64_t>(upload_size(i))});
        EXPECT_EQ(prepared.status, status_file_incomplete);
        peer.send_file_data(std::string(upload_size(i) / 2, 'u'));
    }

    void start_download(Peer& peer, std::size_t i) const {
        support::write_file(download_path(i), std::string(download_size(i), 'd'));
        EXPECT_EQ(peer.prepare(request::Download{.path = download_name(i)}).status, status_ok);
        EXPECT_EQ(peer.stream_from(0).plain.size(), download_size(i));
    }

    std::string folder_;
    std::deque<Peer> clients_;
};

std::size_t count_of(const json& nodes, const std::string& type) {
    return static_cast<std::size_t>(std::ranges::count_if(
        nodes, [&](const json& node) { return node.at("node_type") == type; }));
}

double total_of(const json& nodes, const std::string& type, const char* figure) {
    double total = 0;
    for (const json& node : nodes) {
        total += node.at("node_type") == type ? node.at(figure).get<double>() : 0.0;
    }
    return total;
}

double greatest_of(const json& nodes, const std::string& type, const char* figure) {
    double greatest = 0;
    for (const json& node : nodes) {
        if (node.at("node_type") == type) {
            greatest = std::max(greatest, node.at(figure).get<double>());
        }
    }
    return greatest;
}

// Six digits are written, hence so many are equal.
void expect_near(double found, double expected) {
    EXPECT_NEAR(found, expected, expected * 1e-4);
}

void expect_node(const json& node, Peer& peer, const json& figures) {
    EXPECT_EQ(node.size(), 9U);
    EXPECT_EQ(node.at("node_ip"), "127.0.0.1");
    EXPECT_EQ(node.at("node_port"), peer.socket().local_port());
    for (const auto& [key, value] : figures.items()) {
        EXPECT_EQ(node.at(key), value) << node;
    }
}

void expect_totals(const json& totals, const json& nodes) {
    for (const std::string type : {"message", "upload", "download"}) {
        EXPECT_EQ(totals.at(type + "_connection_count"), count_of(nodes, type));
    }
    for (const std::string type : {"upload", "download"}) {
        expect_near(totals.at(type + "_total_speed"), total_of(nodes, type, "node_speed"));
        expect_near(totals.at(type + "_max_speed"), greatest_of(nodes, type, "node_speed"));
    }
}

TEST_F(DocumentsTest, TellOfAHundredTransfersThatHoldStill) {
    // A connection stands in the list from when the server has taken it on: answered, it is first.
    EXPECT_EQ(peer.node_count(), 1);
    Transfers transfers(server);
    // The answer to none of these requests says that the last piece of an upload is written.
    ASSERT_TRUE(await([&] {
        return total_of(nodes(), "upload", "node_progress") == 50.0 * Transfers::pair_count;
    }));
    json totals;
    json list;
    ASSERT_TRUE(await([&] {
        totals = statistics();
        list = nodes();
        return statistics() == totals;
    }));
    ASSERT_EQ(list.size(), 1 + 2 * Transfers::pair_count);
    expect_node(list[0], peer,
                {{"node_type", "message"},
                 {"node_filename", ""},
                 {"node_filesize", 0},
                 {"node_progress", 0},
                 {"node_user_info", json::object()}});
    for (std::size_t i = 0; i < Transfers::pair_count; ++i) {
        expect_node(list[1 + 2 * i], transfers.upload(i),
                    {{"node_type", "upload"},
                     {"node_filename", transfers.upload_path(i)},
                     {"node_filesize", Transfers::upload_size(i)},
                     {"node_progress", 50},
                     {"node_user_info", Transfers::user_information(i)}});
        expect_node(list[2 + 2 * i], transfers.download(i),
                    {{"node_type", "download"},
                     {"node_filename", transfers.download_path(i)},
                     {"node_filesize", Transfers::download_size(i)},
                     {"node_user_info", json::object()}});
    }
    EXPECT_EQ(count_of(list, "upload"), Transfers::pair_count);
    EXPECT_GT(total_of(list, "upload", "node_speed"), 0);
    EXPECT_GT(total_of(list, "download", "node_speed"), 0);
    expect_totals(totals, list);
}

TEST_F(DocumentsTest, StayWellFormedAndTrueWhileTransfersMove) {
    Transfers transfers(server);
    std::atomic<bool> moving = true;
    std::thread mover([&] {
        transfers.move_on();
        moving = false;
    });
    double progress = 0;
    while (moving) {
        const json list = nodes();
        EXPECT_EQ(list.size(), 1 + 2 * Transfers::pair_count);
        EXPECT_EQ(count_of(list, "download"), Transfers::pair_count);
        EXPECT_GE(total_of(list, "upload", "node_progress"), progress);
        progress = total_of(list, "upload", "node_progress");
        EXPECT_EQ(statistics().at("upload_connection_count"), Transfers::pair_count);
    }
    mover.join();
    for (std::size_t i = 0; i < Transfers::pair_count; ++i) {
        EXPECT_EQ(transfers.upload(i).finish_upload(), status_ok);
        EXPECT_EQ(transfers.download(i).finish_download(), status_ok);
    }
    // What has ended still shows what it was, but no figures.
    json list;
    ASSERT_TRUE(await([&] {
        list = nodes();
        return std::ranges::all_of(list,
                                   [](const json& node) { return node.at("node_filesize") == 0; });
    }));
    EXPECT_EQ(count_of(list, "upload"), Transfers::pair_count);
    EXPECT_EQ(count_of(list, "download"), Transfers::pair_count);
    EXPECT_EQ(total_of(list, "upload", "node_speed"), 0);
}

// With an interval that doesn't end during a test.
class CachedDocumentsTest : public DocumentsTest {
  protected:
    CachedDocumentsTest() : DocumentsTest(3600) {}

    // When the figures were taken, in seconds since 1970-01-01 UTC.
    std::time_t update_time() {
        const std::string text = statistics().at("last_data_update_time");
        std::tm time{};
        time.tm_isdst = -1;
        EXPECT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &time), nullptr) << text;
        return std::mktime(&time);
    }
};

TEST_F(CachedDocumentsTest, AreTakenAfreshWithinTheIntervalIfConnectionsChange) {
    const auto types = [&] {
        std::string all;
        for (const json& node : nodes()) {
            all += node.at("node_type").get<std::string>() + ' ';
        }
        return all;
    };
    // An answer says that the connection has been taken in, and that nothing makes the snapshot due
    // but the interval, which begins here.
    EXPECT_EQ(peer.node_count(), 1);
    const std::time_t before = std::time(nullptr);
    const std::time_t first = update_time();
    EXPECT_GE(first, before);
    EXPECT_LE(first, std::time(nullptr));
    EXPECT_EQ(peer.prepare(request::Upload{.path = "a", .size = 10}).status,
              status_file_incomplete);
    peer.send_file_data("12345");
    EXPECT_EQ(peer.node_count(), 1);
    EXPECT_EQ(HttpPeer(server.command_port()).get("/none").status, "404 Not Found");
    EXPECT_EQ(types(), "message ");
    EXPECT_EQ(update_time(), first);

    std::optional<Peer> second(server.transmit_port());
    EXPECT_EQ(second->ask(request::check_storage_id(1)), status_ok);
    EXPECT_EQ(types(), "upload message ");
    second.reset();
    ASSERT_TRUE(await([&] { return types() == "upload "; }));
}

}  // namespace
