#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include "tests/support/files.h"
#include "tests/system/process_figures.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// How messages are told apart on the wire: whatever pieces they come in, each is taken whole, in
// order, and answered in order.
namespace {

using WireTest = ServerTest;

std::string from_hexadecimal(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        bytes += static_cast<char>(std::stoi(std::string(text.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

// A file of the five bytes of the word hello goes up as a.txt.
const std::string prepare_a_txt = from_hexadecimal(
    "00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 05 00 00 00 00 00 00 03 "
    "E8 00 05 00 00 00 00 00 00 61 2E 74 78 74");
const std::string go_on_from_0 =
    from_hexadecimal("00 01 00 14 00 00 00 00 00 00 00 00 00 00 00 00");
const std::string data_hello = from_hexadecimal("00 02 00 00 00 00 00 05 68 65 6C 6C 6F");
const std::string finish = from_hexadecimal("00 04");
const std::string finished = from_hexadecimal("00 05 00 00");

TEST_F(WireTest, UploadsByteForByteAsWritten) {
    peer.send(prepare_a_txt);
    EXPECT_EQ(peer.receive_bytes(go_on_from_0.size()), go_on_from_0);
    peer.send(data_hello);
    peer.send(finish);
    EXPECT_EQ(peer.receive_bytes(finished.size()), finished);
    EXPECT_EQ(support::read_file(in_storage("a.txt")), "hello");
    EXPECT_EQ(stored_file::time_of(in_storage("a.txt")), 1000);
}

TEST_F(WireTest, TakesAConversationByteByByteAndAllAtOnce) {
    const std::string conversation = prepare_a_txt + data_hello + finish;
    const std::string answers = go_on_from_0 + finished;
    for (const std::size_t piece : {std::size_t{1}, conversation.size()}) {
        SCOPED_TRACE(piece);
        for (std::size_t at = 0; at < conversation.size(); at += piece) {
            peer.send(std::string_view(conversation).substr(at, piece));
        }
        EXPECT_EQ(peer.receive_bytes(answers.size()), answers);
        EXPECT_EQ(support::read_file(in_storage("a.txt")), "hello");
        std::filesystem::remove(in_storage("a.txt"));
    }
}

// Requests of every shape whose answers don't hang on time, and these answers. They leave the
// storage as they found it.
struct Exchange {
    std::string requests;
    std::string answers;
};

Exchange mixed_exchange() {
    Exchange mix;
    const auto add = [&](const std::string& request, std::string_view answer) {
        mix.requests += request;
        mix.answers += answer.empty() ? "" : from_hexadecimal(answer);
    };
    add(request::create_directory("d/e"), "00 0D 00 00");
    add(request::check_storage_id(1), "00 1B 00 00");
    add(request::check_storage_id(9), "00 1B 00 03");
    add(request::upload_file_prepare({.path = "d/f", .size = 5}),
        "00 01 00 14 00 00 00 00 00 00 00 00 00 00 00 00");
    add(request::upload_file_data("he"), "");
    add(request::upload_file_data(""), "");
    add(request::test_upload_data("swallowed"), "00 1F 00 00");
    add(request::upload_file_data("llo"), "");
    add(request::upload_file_finish(), "00 05 00 00");
    add(request::upload_file_finish(), "00 05 00 04");
    add(request::download_file_prepare({.path = "d/f"}),
        "00 07 00 00 00 00 00 00 00 00 00 00 00 00 00 05 00 00 00 00 00 00 03 E8");
    add(request::download_file_finish(), "00 0B 00 00");
    add(request::download_file_data(0), "00 09 00 04 00 00 00 00");
    add(request::rename_path("d/f", "d/e/g"), "00 11 00 00");
    add(request::get_path_content("d/e/g"), "00 1D 00 09 00 00 00 00");
    add(request::set_user_information("{}"), "00 13 00 00");
    add(request::set_transmit_speed(65536), "00 19 00 00");
    add(request::test_download_data(3), "00 21 00 00 00 03 00 00 00");
    add(request::get_norvane_node_count(), "00 17 00 00 00 01");
    // The second prepare ends the first one's transfer, and the finish the second's: what stands
    // behind them must not wait for more bytes.
    add(request::upload_file_prepare({.path = "d/x", .size = 0}),
        "00 01 00 14 00 00 00 00 00 00 00 00 00 00 00 00");
    add(request::upload_file_prepare({.path = "d/y", .size = 0}),
        "00 01 00 14 00 00 00 00 00 00 00 00 00 00 00 00");
    add(request::upload_file_finish(), "00 05 00 00");
    add(request::cleanup_connection(), "00 23 00 00");
    add(request::delete_path("d"), "00 0F 00 00");
    add(request::get_path_content("d"), "00 1D 00 08 00 00 00 00");
    return mix;
}

TEST_F(WireTest, AnswersPipelinedRequestsInOrderHoweverTheyAreCut) {
    const Exchange mix = mixed_exchange();
    std::mt19937 generator(1);
    for (const std::size_t longest_piece : {1U, 7U, 60U, 1000U}) {
        SCOPED_TRACE(longest_piece);
        std::uniform_int_distribution<std::size_t> piece(1, longest_piece);
        for (std::size_t at = 0; at < mix.requests.size();) {
            const std::string_view next =
                std::string_view(mix.requests).substr(at, piece(generator));
            peer.send(next);
            at += next.size();
        }
        ASSERT_EQ(peer.receive_bytes(mix.answers.size()), mix.answers);
    }
}

TEST_F(WireTest, EndsAConnectionAtAnUnknownType) {
    const std::array types{1, 5, 35, 36, 255, 256, 65535};
    // All connected at once, so that each has a session, and lines in the run log, of its own.
    std::deque<Peer> others;
    for (std::size_t count = 0; count < types.size(); ++count) {
        others.emplace_back(server.transmit_port()).ask(request::check_storage_id(1));
    }
    for (const int type : types) {
        SCOPED_TRACE(type);
        Peer& other = others.front();
        other.send(request::check_storage_id(1));
        other.send(std::string{static_cast<char>(type >> 8), static_cast<char>(type & 255)});
        other.send(request::check_storage_id(1));
        EXPECT_EQ(other.receive_bytes(4), from_hexadecimal("00 1B 00 00"));
        EXPECT_TRUE(other.socket().await_close());
        EXPECT_NE(server.root().run_log().find("unknown message type (" + std::to_string(type)),
                  std::string::npos);
        others.pop_front();
    }
    EXPECT_EQ(peer.ask(request::check_storage_id(1)), message::status_ok);
}

TEST_F(WireTest, GivesAPeerThatStopsSendingAllThatIsUnderWay) {
    const std::string bytes = support::random_bytes(20 << 20, 2);
    stored_file::put(in_storage("big"), bytes);
    peer.send(request::download_file_prepare({.path = "big"}));
    peer.send(request::download_file_data(0));
    peer.socket().finish_sending();
    EXPECT_EQ(peer.receive<message::DownloadFilePrepare>().file_size, 20 << 20);
    EXPECT_EQ(support::sha256(peer.receive_stream().plain), support::sha256(bytes));
    EXPECT_TRUE(peer.socket().await_close());
}

TEST_F(WireTest, RefusesAFrameBeyondTheReceiveBufferAndGivesItsMemoryBack) {
    constexpr std::uint64_t mebibyte = 1 << 20;
    const std::string megabyte(mebibyte, 'x');
    Peer greedy(server.transmit_port());
    greedy.send(from_hexadecimal("00 02 00 00 FF FF FF FF"));
    std::uint64_t sent = 0;
    while (sent < 200 * mebibyte && greedy.socket().send(megabyte)) {
        sent += mebibyte;
    }
    EXPECT_LT(sent, 100 * mebibyte);
    EXPECT_TRUE(greedy.socket().await_close());
    EXPECT_EQ(peer.ask(request::check_storage_id(1)), message::status_ok);
    EXPECT_LT(process_figures::peak_resident_memory(server.pid()), 400 * mebibyte);
}

TEST_F(WireTest, TakesAFrameOf64MebibytesWhole) {
    const std::string bytes = support::random_bytes((64 << 20) - 8, 3);
    EXPECT_EQ(peer.prepare(request::Upload{.path = "one", .size = std::ssize(bytes)}),
              (UploadPrepared{message::status_file_incomplete, 0}));
    peer.send(request::upload_file_data(bytes));
    EXPECT_EQ(peer.finish_upload(), message::status_ok);
    EXPECT_EQ(support::sha256_of_file(in_storage("one")), support::sha256(bytes));
}

}  // namespace
