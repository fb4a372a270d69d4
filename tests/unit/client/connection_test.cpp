#include "client/connection.h"

#include <gtest/gtest.h>

#include <deque>
#include <latch>
#include <thread>

#include "client/detail/backoff.h"
#include "client/listing.h"
#include "src/message/status.h"
#include "tests/unit/client/scripted_peer.h"

namespace {

using namespace std::chrono_literals;
using transmit::Connection;
using transmit::ErrorKind;

Connection open(const ScriptedPeer& peer, transmit::WaitLimits limits = {}) {
    auto connection = Connection::open({"127.0.0.1", peer.port()}, std::move(limits));
    EXPECT_TRUE(connection) << connection.error().text;
    return *std::move(connection);
}

TEST(Connection, ARefusalLeavesItUsable) {
    std::string paths;
    ScriptedPeer peer({[&](PeerConnection& server) {
        const auto request = server.expect<message::RenamePath>(&paths);
        EXPECT_EQ(request.storage_id, 7U);
        EXPECT_EQ(request.user_id, 1234U);
        EXPECT_EQ(request.old_path_length, 3U);
        server.answer<message::RenamePath>({.type = 0, .status = message::status_rename_failed});
        server.expect<message::GetNorvaneNodeCount>();
        server.answer<message::GetNorvaneNodeCount>({.type = 0, .status = 0, .node_count = 65'535});
    }});
    auto connection = open(peer);
    const auto renamed = connection.rename_path({7, 1234, "old"}, "newer");
    ASSERT_FALSE(renamed);
    EXPECT_EQ(renamed.error().kind, ErrorKind::refused);
    EXPECT_EQ(renamed.error().status, message::status_rename_failed);
    const auto count = connection.get_norvane_node_count();
    ASSERT_TRUE(count) << count.error().text;
    EXPECT_EQ(*count, 65'535);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_EQ(paths, "oldnewer");
}

TEST(Connection, AnAnswerOfAnotherTypeClosesIt) {
    ScriptedPeer peer({[](PeerConnection& server) {
        server.expect<message::CheckStorageId>();
        server.answer<message::CreateDirectory>();
    }});
    auto connection = open(peer);
    EXPECT_EQ(connection.check_storage_id(1).error().kind, ErrorKind::bad_answer);
    EXPECT_FALSE(connection.is_open());
    EXPECT_EQ(connection.check_storage_id(1).error().kind, ErrorKind::connection_lost);
}

TEST(Connection, SilenceEndsAtTheTimeLimitHoweverMuchCameBefore) {
    bool gone = false;
    ScriptedPeer peer({[&](PeerConnection& server) {
        server.expect<message::GetStorageInformation>();
        server.send(bytes_of(message::DataResponse{21, 0, 1000}) + "<root>");
        gone = server.at_end();
    }});
    auto connection = open(peer, {.connect = 5s, .silence = 300ms, .cancelled = {}});
    EXPECT_EQ(connection.get_storage_information().error().kind, ErrorKind::time_limit);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_TRUE(gone);
}

TEST(Connection, WhatDoesNotFitTheWireIsNotSent) {
    ScriptedPeer peer({[](PeerConnection& server) {
        std::string tail;
        server.expect<message::DeletePath>(&tail);
        EXPECT_EQ(tail.size(), 65'535U);
        server.answer<message::DeletePath>();
    }});
    auto connection = open(peer);
    const transmit::RemotePath too_long{1, 0, std::string(65'536, 'a')};
    const transmit::RemotePath longest{1, 0, std::string(65'535, 'a')};
    EXPECT_EQ(connection.delete_path(too_long).error().kind, ErrorKind::invalid_request);
    EXPECT_EQ(connection.rename_path(longest, too_long.path).error().kind,
              ErrorKind::invalid_request);
    EXPECT_TRUE(connection.delete_path(longest));
    EXPECT_EQ(peer.played(), 1U);
}

TEST(Backoff, PausesDoubleUpToTheLongestAndEndAtTheDeadline) {
    transmit::detail::Backoff backoff(1s, 5s, 20s);
    const transmit::detail::Backoff::Clock::time_point start{};
    backoff.restart(start);
    for (const auto pause : {1s, 2s, 4s, 5s, 5s}) {
        EXPECT_EQ(backoff.next_pause(start), pause);
    }
    EXPECT_EQ(backoff.next_pause(start + 15s), 5s);
    EXPECT_EQ(backoff.next_pause(start + 15s + 1ms), std::nullopt);
    backoff.restart(start + 30s);
    EXPECT_EQ(backoff.next_pause(start + 30s), 1s);
}

TEST(Listing, HoldsWhatTheDocumentSays) {
    const auto entries = transmit::parse_listing(
        R"(<?xml version="1.0" encoding="UTF-8"?><root><folder name="pi&quot;cs"/><other/>)"
        R"(<file name="&#xE4;&amp;.txt" size="-5" time="9223372036854775807"/></root>)");
    ASSERT_TRUE(entries) << entries.error().text;
    ASSERT_EQ(entries->size(), 2U);
    EXPECT_TRUE(entries->at(0).is_folder);
    EXPECT_EQ(entries->at(0).name, "pi\"cs");
    EXPECT_EQ(entries->at(1).name, "\u00E4&.txt");
    EXPECT_EQ(entries->at(1).size, -5);
    EXPECT_EQ(entries->at(1).time, INT64_MAX);

    const auto storages =
        transmit::parse_storages(R"(<root><storage id="007" name="Public"/></root>)");
    ASSERT_TRUE(storages) << storages.error().text;
    EXPECT_EQ(storages->at(0).id, "007");
    EXPECT_EQ(storages->at(0).name, "Public");
    EXPECT_TRUE(transmit::parse_listing("<root/>")->empty());
}

TEST(Listing, RefusesWhatIsNone) {
    for (const char* document :
         {"", "<root>", "<root><folder/></root>", R"(<root><file name="a" size="1"/></root>)",
          R"(<root><file name="a" size="1x" time="0"/></root>)",
          R"(<root><file name="a" size="99999999999999999999" time="0"/></root>)",
          "<root><folder name=\"\xFF\"/></root>", "<root/><root/>",
          "<!DOCTYPE root SYSTEM \"file:///etc/hostname\"><root/>"}) {
        const auto entries = transmit::parse_listing(document);
        ASSERT_FALSE(entries) << document;
        EXPECT_EQ(entries.error().kind, ErrorKind::bad_answer);
    }
}

// Parsers have limits against hostile documents, of 10 MB as a rule.
TEST(Listing, HoldsAVeryLargeFolder) {
    const std::string name(200, 'n');
    std::string document = "<root>";
    for (int index = 0; index < 60'000; ++index) {
        document.append(R"(<file name=")").append(name).append(R"(" size="1" time="0"/>)");
    }
    const auto entries = transmit::parse_listing(document + "</root>");
    ASSERT_TRUE(entries) << entries.error().text;
    EXPECT_EQ(entries->size(), 60'000U);
}

// The workers of a batch list several folders at once, and these may be the program's first. The
// sanitizers see what goes wrong then.
TEST(Listing, SeveralThreadsReadTheirFirstAtOnce) {
    constexpr int thread_count = 4;
    std::latch ready(thread_count);
    std::deque<std::jthread> threads;
    for (int index = 0; index < thread_count; ++index) {
        threads.emplace_back([&ready] {
            ready.arrive_and_wait();
            const auto entries = transmit::parse_listing(R"(<root><folder name="f"/></root>)");
            EXPECT_TRUE(entries && entries->size() == 1);
        });
    }
}

}  // namespace
