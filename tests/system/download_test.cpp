#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

namespace {

using message::status_ok;
using request::Download;

constexpr std::int64_t chunk = 65536;
// Some ten times what the kernel keeps in the sockets of one connection, so that a stream of it is
// still running as long as its client reads no further than to the next answer.
constexpr std::int64_t long_size = 48 << 20;
constexpr int receive_buffer = 256 << 10;

class DownloadTest : public ServerTest {
  protected:
    // A download of long_size bytes that stands still behind its first chunk, which is received.
    void start_long_download() {
        setsockopt(peer.socket().descriptor(), SOL_SOCKET, SO_RCVBUF, &receive_buffer,
                   sizeof receive_buffer);
        bytes = support::random_bytes(long_size, 7);
        stored_file::put(in_storage("long"), bytes);
        ASSERT_EQ(peer.prepare(Download{.path = "long"}),
                  (DownloadPrepared{status_ok, long_size, 1000}));
        peer.send(request::download_file_data(0));
        received = peer.receive_bytes(peer.receive<message::DownloadFileData>().data_length);
    }

    // Receives chunks of the running download until a message of another type has come, and gives
    // that type.
    std::uint16_t receive_chunks_until_another_type() {
        while (true) {
            const std::uint16_t type = peer.receive_type();
            if (type != message::DownloadFileData::response_type) {
                return type;
            }
            const auto data = peer.receive_after<message::DownloadFileData::Response>(type);
            if (data.data_length == 0) {
                throw std::runtime_error("the download came to its end");
            }
            received += peer.receive_bytes(data.data_length);
        }
    }

    void expect_answer_between_chunks(const std::string& request, std::uint16_t response_type) {
        peer.send(request);
        EXPECT_EQ(receive_chunks_until_another_type(), response_type);
    }

    bool logged(const std::string& text) const {
        return server.root().run_log().find(text) != std::string::npos;
    }

    std::string bytes;     // of the long file
    std::string received;  // of its download
};

std::uint32_t enciphered_size(std::uint32_t plain) {
    return (plain / 16 + 1) * 16;
}

TEST_F(DownloadTest, StreamsFilesOfAnySizeFromAnyOffset) {
    for (const std::int64_t size : {std::int64_t{0}, std::int64_t{1}, std::int64_t{16}, chunk - 1,
                                    chunk, chunk + 1, 2 * chunk, 16 * chunk}) {
        const std::string file = support::random_bytes(static_cast<std::uint64_t>(size), 5);
        stored_file::put(in_storage("f"), file, 1234);
        for (const bool encrypted : {false, true}) {
            ASSERT_EQ(peer.prepare(Download{.path = "f", .encrypted = encrypted}),
                      (DownloadPrepared{status_ok, size, 1234}));
            for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{1}, size / 2, size,
                                              size + 1, std::int64_t{1} << 40}) {
                SCOPED_TRACE(testing::Message() << size << " bytes from " << offset);
                const Stream stream = peer.stream_from(offset, encrypted);
                const std::string expected =
                    offset < size ? file.substr(static_cast<std::size_t>(offset)) : "";
                EXPECT_EQ(stream.status, status_ok);
                EXPECT_EQ(stream.plain.size(), expected.size());
                EXPECT_TRUE(stream.plain == expected);
                std::vector<std::uint32_t> lengths;
                for (std::size_t at = 0; at < expected.size(); at += chunk) {
                    const auto plain =
                        static_cast<std::uint32_t>(expected.substr(at, chunk).size());
                    lengths.push_back(encrypted ? enciphered_size(plain) : plain);
                }
                EXPECT_EQ(stream.lengths, lengths);
            }
            EXPECT_EQ(peer.finish_download(), status_ok);
            EXPECT_EQ(peer.finish_download(), message::status_invalid_connection_data);
        }
    }
}

TEST_F(DownloadTest, RefusesWithoutHarmToARunningTransfer) {
    std::filesystem::create_directories(in_storage("folder"));
    const std::string too_long = std::string(250, 'p') + "/" + std::string(250, 'q') + "/" +
                                 std::string(250, 'r') + "/" + std::string(250, 's');
    std::filesystem::create_directories(in_storage(std::filesystem::path(too_long).parent_path()));
    std::filesystem::create_symlink("ring", in_storage("ring"));
    start_long_download();
    struct Refusal {
        Download download;
        message::Status status;
        std::string log_text;
    };
    const Refusal refusals[] = {
        {{.path = "long", .storage_id = 77},
         message::status_invalid_storage_id,
         "invalid storage id: 77"},
        {{.path = "missing"},
         message::status_access_failed,
         "can not access file (" + in_storage("missing") + ")"},
        {{.path = "long/below"}, message::status_access_failed, "can not access file"},
        {{.path = "ring/below"},
         message::status_access_failed,
         "can not access file (" + in_storage("ring/below") + ")"},
        {{.path = "folder"},
         message::status_path_is_directory,
         "path is a directory (" + in_storage("folder") + ")"},
        {{.path = ""}, message::status_path_is_directory, "path is a directory"},
        {{.path = too_long}, message::status_access_failed, ""},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.download.path);
        peer.send(request::download_file_prepare(refusal.download));
        ASSERT_EQ(receive_chunks_until_another_type(), message::DownloadFilePrepare::response_type);
        const auto response = peer.receive_after<message::DownloadFilePrepareResponse>(
            message::DownloadFilePrepare::response_type);
        EXPECT_EQ(response.status, refusal.status);
        EXPECT_TRUE(logged(refusal.log_text));
    }
    EXPECT_TRUE(received + peer.receive_stream().plain == bytes);
}

TEST_F(DownloadTest, EndsTheTransferWhenItsFileCannotBeHad) {
    const auto expect_ended = [&](std::int64_t offset, message::Status status,
                                  const std::string& log_text) {
        const Stream stream = peer.stream_from(offset);
        EXPECT_EQ(stream.status, status);
        EXPECT_EQ(stream.plain, "");
        EXPECT_TRUE(logged(log_text));
        EXPECT_EQ(peer.stream_from(0).status, message::status_invalid_connection_data);
        EXPECT_EQ(peer.finish_download(), message::status_invalid_connection_data);
    };
    stored_file::put(in_storage("f"), "content");
    ASSERT_EQ(peer.prepare(Download{.path = "f"}).status, status_ok);
    expect_ended(-1, message::status_seek_failed,
                 "offset file failed (" + in_storage("f") + " : -1)");
    ASSERT_EQ(peer.prepare(Download{.path = "f"}).status, status_ok);
    expect_ended(INT64_MIN, message::status_seek_failed, "offset file failed");

    ASSERT_EQ(peer.prepare(Download{.path = "f"}).status, status_ok);
    std::filesystem::remove(in_storage("f"));
    expect_ended(0, message::status_open_read_failed,
                 "open file to read failed (" + in_storage("f") + ")");

    // A regular file whose first page nobody can read: there is no memory at address 0.
    std::filesystem::create_symlink("/proc/self/mem", in_storage("m"));
    ASSERT_EQ(peer.prepare(Download{.path = "m"}).status, status_ok);
    expect_ended(0, message::status_read_failed, "read file failed (" + in_storage("m") + ")");
}

TEST_F(DownloadTest, FollowsAFileThatChangesAfterThePrepare) {
    stored_file::put(in_storage("f"), "0123456789");
    ASSERT_EQ(peer.prepare(Download{.path = "f"}).size, 10);
    stored_file::put(in_storage("f"), std::string(200000, 'x'));
    EXPECT_EQ(peer.stream_from(0).plain, std::string(200000, 'x'));
    stored_file::put(in_storage("f"), "0123");
    EXPECT_EQ(peer.stream_from(2).plain, "23");
}

// What waits in buffers and sockets must not change with the file.
TEST_F(DownloadTest, EndsWhereItsFileShrinksToWhileItIsRead) {
    start_long_download();
    std::filesystem::resize_file(in_storage("long"), chunk);
    received += peer.receive_stream().plain;
    EXPECT_LT(received.size(), bytes.size());
    EXPECT_TRUE(bytes.starts_with(received));
    EXPECT_EQ(peer.finish_download(), status_ok);
}

TEST_F(DownloadTest, GoesOnFromTheOffsetOfASecondDataRequest) {
    start_long_download();
    peer.send(request::download_file_data(long_size - 5));
    received += peer.receive_stream().plain;
    ASSERT_LT(received.size(), bytes.size());
    ASSERT_EQ(received.size() % chunk, 5);
    EXPECT_TRUE(received.ends_with(bytes.substr(long_size - 5)));
    received.resize(received.size() - 5);
    EXPECT_TRUE(bytes.starts_with(received));
    EXPECT_EQ(peer.finish_download(), status_ok);
}

TEST_F(DownloadTest, ServesOtherRequestsBetweenChunks) {
    start_long_download();
    stored_file::put(in_storage("g"), "old");
    const auto plain = [&](const std::string& request, std::uint16_t response_type) {
        SCOPED_TRACE(response_type);
        expect_answer_between_chunks(request, response_type);
        EXPECT_EQ(peer.receive_after<message::PlainResponse>(response_type).status, status_ok);
    };
    plain(request::check_storage_id(1), 27);
    plain(request::create_directory("d"), 13);
    plain(request::rename_path("g", "d/g"), 17);
    plain(request::delete_path("d"), 15);
    plain(request::set_user_information("{}"), 19);
    plain(request::set_transmit_speed(0), 25);
    plain(request::test_upload_data("swallowed"), 31);
    expect_answer_between_chunks(request::test_download_data(3), 33);
    peer.receive_after<message::TestDownloadDataResponse>(33);
    EXPECT_EQ(peer.receive_bytes(3), std::string(3, '\0'));
    expect_answer_between_chunks(request::get_path_content(""), 29);
    const auto listing = peer.receive_after<message::DataResponse>(29);
    EXPECT_EQ(listing.status, message::status_path_is_directory);
    EXPECT_NE(peer.receive_bytes(listing.data_length).find("\"long\""), std::string::npos);
    EXPECT_TRUE(received + peer.receive_stream().plain == bytes);
}

TEST_F(DownloadTest, SendsNoChunkBehindTheAnswerToWhatEndsIt) {
    struct Ending {
        std::string request;
        std::uint16_t response_type;
        std::size_t rest_of_response;
    };
    const Ending endings[] = {
        {request::download_file_finish(), 11, 2},
        {request::cleanup_connection(), 35, 2},
        {request::download_file_prepare({.path = "long"}), 7, 22},
        {request::upload_file_prepare({.path = "new", .size = 1}), 1, 14},
        {request::upload_file_data("x"), 3, 2},
    };
    for (const Ending& ending : endings) {
        SCOPED_TRACE(ending.response_type);
        start_long_download();
        expect_answer_between_chunks(ending.request, ending.response_type);
        peer.receive_bytes(ending.rest_of_response);
        EXPECT_TRUE(bytes.starts_with(received));
        EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
    }
}

TEST_F(DownloadTest, ReadsATargetWhileItsReplacementComes) {
    stored_file::put(in_storage("f"), "first");
    Peer writer(server.transmit_port());
    ASSERT_EQ(peer.prepare(Download{.path = "f"}).status, status_ok);
    EXPECT_EQ(writer.upload({.path = "f", .size = 6}, "second"), status_ok);
    EXPECT_EQ(peer.stream_from(0).plain, "second");
    ASSERT_EQ(peer.prepare(Download{.path = "f"}), (DownloadPrepared{status_ok, 6, 1000}));
}

}  // namespace
