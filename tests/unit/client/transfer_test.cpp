#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>

#include "client/download.h"
#include "client/upload.h"
#include "src/message/status.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/unit/client/scripted_peer.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using support::read_file;
using support::write_file;
using transmit::ErrorKind;
using transmit::Progress;

constexpr std::int64_t source_time = 1'560'000'000;

transmit::RetryPolicy hasty(std::chrono::milliseconds time_limit = 5s) {
    return {.first_pause = 1ms, .longest_pause = 8ms, .time_limit = time_limit};
}

transmit::WaitLimits patient(std::function<bool()> cancelled = {}) {
    return {.connect = 5s, .silence = 10s, .cancelled = std::move(cancelled)};
}

void set_time(const std::string& path, std::int64_t time) {
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

std::int64_t time_of(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
}

void prepare_upload(PeerConnection& peer, std::uint16_t status, std::int64_t offset = 0) {
    peer.expect<message::UploadFilePrepare>();
    message::UploadFilePrepareResponse response{};
    response.status = status;
    response.offset = offset;
    peer.answer<message::UploadFilePrepare>(response);
}

// Takes data messages until `size` bytes have come.
std::string receive_upload(PeerConnection& peer, std::size_t size) {
    std::string received;
    while (received.size() < size) {
        std::string tail;
        peer.expect<message::UploadFileData>(&tail);
        received += tail;
    }
    return received;
}

void finish_upload(PeerConnection& peer, std::uint16_t status = message::status_ok) {
    peer.expect<message::UploadFileFinish>();
    peer.answer<message::UploadFileFinish>({.type = 0, .status = status});
}

void send_block(PeerConnection& peer, std::string_view data,
                std::uint16_t status = message::status_ok) {
    const message::DataResponse header{.type = message::DownloadFileData::response_type,
                                       .status = status,
                                       .data_length = static_cast<std::uint32_t>(data.size())};
    peer.send(bytes_of(header) + std::string(data));
}

void prepare_download(PeerConnection& peer, std::uint16_t status, std::size_t size = 0,
                      std::int64_t time = source_time) {
    peer.expect<message::DownloadFilePrepare>();
    message::DownloadFilePrepareResponse response{};
    response.status = status;
    response.file_size = static_cast<std::int64_t>(size);
    response.file_time = time;
    peer.answer<message::DownloadFilePrepare>(response);
}

// The whole conversation up to the data request, whose offset it gives.
std::int64_t start_download(PeerConnection& peer, std::size_t size,
                            std::int64_t time = source_time) {
    prepare_download(peer, message::status_ok, size, time);
    return peer.expect<message::DownloadFileData>().offset;
}

void finish_download(PeerConnection& peer) {
    send_block(peer, "");
    peer.expect<message::DownloadFileFinish>();
    peer.answer<message::DownloadFileFinish>();
}

class Transfer : public testing::Test {
  protected:
    Transfer() {
        write_file(source_, content_);
        set_time(source_, source_time);
    }

    transmit::RetryingConnection connect(const ScriptedPeer& peer,
                                         transmit::RetryPolicy policy = hasty(),
                                         transmit::WaitLimits limits = patient()) {
        return transmit::RetryingConnection({"127.0.0.1", peer.port()}, std::move(limits), policy);
    }

    transmit::Result<transmit::TransferReport> upload(const ScriptedPeer& peer,
                                                      const transmit::ProgressCallback& watch = {},
                                                      transmit::RetryPolicy policy = hasty()) {
        auto server = connect(peer, policy);
        return transmit::upload_file(server, {source_, {1, 0, "a.bin"}}, watch);
    }

    transmit::Result<transmit::TransferReport> download(const ScriptedPeer& peer,
                                                        transmit::RetryPolicy policy = hasty(),
                                                        bool encrypted = false) {
        auto server = connect(peer, policy);
        return transmit::download_file(server, {{1, 0, "a.bin"}, target_, encrypted});
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    support::TemporaryFolder folder_;
    const std::string source_ = folder_.path() + "source.bin";
    const std::string target_ = folder_.path() + "target.bin";
    const std::string content_ = support::random_bytes(1'000'000, 1);
};

TEST_F(Transfer, UploadGoesByteForByteOverTheWire) {
    write_file(source_, "hello");
    set_time(source_, 1000);
    std::string asked;
    std::string sent;
    ScriptedPeer peer({[&](PeerConnection& connection) {
        asked = connection.receive(45);
        connection.send("\x00\x01\x00\x14\0\0\0\0\0\0\0\0\0\0\0\0"s);
        sent = connection.receive(15);
        connection.send("\x00\x05\x00\x00"s);
    }});
    auto server = connect(peer);
    const auto report = transmit::upload_file(server, {source_, {1, 0, "a.txt"}});
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_EQ(asked,
              "\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\5\0\0\0\0\0\0\x03\xE8\0\5\0\0\0\0\0\0"
              "a.txt"s);
    EXPECT_EQ(sent, "\0\x02\0\0\0\0\0\5hello\0\x04"s);
}

TEST_F(Transfer, UploadResumesWhereABrokenConnectionLeftTheServer) {
    std::string first;
    std::string rest;
    ScriptedPeer peer({[&](PeerConnection& connection) {
                           prepare_upload(connection, message::status_file_incomplete);
                           first = receive_upload(connection, 300'000).substr(0, 300'000);
                           connection.reset();
                       },
                       [&](PeerConnection& connection) {
                           prepare_upload(connection, message::status_file_incomplete, 300'000);
                           rest = receive_upload(connection, 700'000);
                           finish_upload(connection);
                       }});
    std::int64_t last = 0;
    const auto report = upload(peer, [&](const Progress& progress) { last = progress.done; });
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(peer.played(), 2U);
    EXPECT_TRUE(first + rest == content_);
    EXPECT_EQ(report->resumed_from, 0);
    EXPECT_EQ(last, 1'000'000);
}

TEST_F(Transfer, UploadThatTheServerHasSendsNothing) {
    ScriptedPeer peer({[](PeerConnection& connection) {
        prepare_upload(connection, message::status_ok, 1'000'000);
        EXPECT_TRUE(connection.at_end());
    }});
    const auto report = upload(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_TRUE(report->already_there);
}

TEST_F(Transfer, UploadEndsWithTheStatusOfARefusal) {
    ScriptedPeer at_prepare({[](PeerConnection& peer) {
        prepare_upload(peer, message::status_path_is_directory);
    }});
    EXPECT_EQ(upload(at_prepare).error().status, message::status_path_is_directory);

    ScriptedPeer at_finish({[](PeerConnection& peer) {
        prepare_upload(peer, message::status_file_incomplete);
        receive_upload(peer, 1'000'000);
        finish_upload(peer, message::status_rename_failed);
    }});
    EXPECT_EQ(upload(at_finish).error().status, message::status_rename_failed);
}

TEST_F(Transfer, UploadStopsWhenTheServerReportsAFailedBlock) {
    std::filesystem::resize_file(source_, 1'000'000'000);
    std::atomic<std::int64_t> furthest = 0;
    ScriptedPeer peer({[](PeerConnection& connection) {
        prepare_upload(connection, message::status_file_incomplete);
        receive_upload(connection, 1);
        connection.answer<message::UploadFileData>(
            {.type = 0, .status = message::status_write_failed});
        try {
            receive_upload(connection, 1'000'000'000);
        } catch (const std::runtime_error&) {
            return;
        }
        FAIL() << "all of the file was sent";
    }});
    const auto report = upload(peer, [&](const Progress& progress) { furthest = progress.done; });
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::refused);
    EXPECT_EQ(report.error().status, message::status_write_failed);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_LT(furthest, 500'000'000);
}

TEST_F(Transfer, UploadOfAChangingFileIsNotFinished) {
    for (const bool grows : {true, false}) {
        write_file(source_, content_);
        ScriptedPeer peer({[](PeerConnection& connection) {
            prepare_upload(connection, message::status_file_incomplete);
            try {
                receive_upload(connection, 2'000'000);
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "the client has gone");
            }
        }});
        const auto report = upload(peer, [&](const Progress& progress) {
            if (progress.done > 0) {
                std::filesystem::resize_file(source_, grows ? 1'000'001 : 10);
            }
        });
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::file_changed);
    }
}

TEST_F(Transfer, DownloadResumesItsPartAfterABrokenConnection) {
    std::int64_t resumed = 0;
    ScriptedPeer peer({[&](PeerConnection& connection) {
                           EXPECT_EQ(start_download(connection, content_.size()), 0);
                           send_block(connection, content_.substr(0, 65'536));
                           connection.send(bytes_of(message::DataResponse{9, 0, 65'536}) +
                                           content_.substr(65'536, 1000));
                       },
                       [&](PeerConnection& connection) {
                           resumed = start_download(connection, content_.size());
                           send_block(connection, content_.substr(66'536));
                           finish_download(connection);
                       }});
    const auto report = download(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(peer.played(), 2U);
    EXPECT_EQ(resumed, 66'536);
    EXPECT_TRUE(read_file(target_) == content_);
    EXPECT_EQ(time_of(target_), source_time);
    EXPECT_EQ(names(), (std::vector<std::string>{"source.bin", "target.bin"}));
}

TEST_F(Transfer, ALaterDownloadResumesThePartOfTheSameVersionOnly) {
    const auto break_off = [&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 400'000));
    };
    struct Case {
        std::int64_t time;
        std::size_t size;
        std::int64_t offset;
    };
    for (const Case& later : {Case{source_time, 1'000'000, 400'000},
                              Case{source_time + 1, 1'000'000, 0}, Case{source_time, 999'999, 0}}) {
        ScriptedPeer broken({break_off});
        const auto report = download(broken, hasty(0s));
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::connection_lost);
        EXPECT_EQ(std::filesystem::file_size(target_ + ".part"), 400'000U);
        EXPECT_FALSE(std::filesystem::exists(target_));

        const std::string content = content_.substr(0, later.size);
        ScriptedPeer peer({[&](PeerConnection& connection) {
            const std::int64_t offset = start_download(connection, later.size, later.time);
            EXPECT_EQ(offset, later.offset);
            send_block(connection, content.substr(static_cast<std::size_t>(offset)));
            finish_download(connection);
        }});
        ASSERT_TRUE(download(peer));
        EXPECT_TRUE(read_file(target_) == content);
        EXPECT_EQ(time_of(target_), later.time);
        std::filesystem::remove(target_);
    }
}

TEST_F(Transfer, DownloadOfAnotherLengthThanAnnouncedNeverTakesTheTargetsName) {
    for (const std::size_t length : {999'999U, 1'000'001U}) {
        ScriptedPeer peer({[&](PeerConnection& connection) {
            start_download(connection, 1'000'000);
            send_block(connection, std::string(length, 'x'));
            send_block(connection, "");
        }});
        const auto report = download(peer);
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::file_changed);
        EXPECT_FALSE(std::filesystem::exists(target_));
    }
}

TEST_F(Transfer, DownloadEndsWithTheStatusOfARefusal) {
    ScriptedPeer peer({[](PeerConnection& server) {
        prepare_download(server, message::status_access_failed);
    }});
    EXPECT_EQ(download(peer).error().status, message::status_access_failed);
    EXPECT_EQ(names(), std::vector<std::string>{"source.bin"});

    ScriptedPeer in_the_stream({[&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 1000));
        send_block(connection, "", message::status_read_failed);
    }});
    EXPECT_EQ(download(in_the_stream).error().status, message::status_read_failed);
    EXPECT_EQ(read_file(target_ + ".part"), content_.substr(0, 1000));
}

TEST_F(Transfer, DownloadDistrustsWhatStandsBetweenTheBlocks) {
    const std::string block = bytes_of(message::DataResponse{9, 0, 32});
    for (const std::string& bytes :
         {bytes_of(message::DataResponse{11, 0, 0}), block + std::string(32, 'x'),
          bytes_of(message::DataResponse{9, 0, 0xFFFFFFFF})}) {
        ScriptedPeer peer({[&](PeerConnection& connection) {
            start_download(connection, 100);
            connection.send(bytes);
        }});
        const auto report = download(peer, hasty(), true);
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::bad_answer);
    }
}

TEST_F(Transfer, OnlyOneDownloadAtATimeWritesAPart) {
    ScriptedPeer inner({[&](PeerConnection& peer) {
        start_download(peer, content_.size());
    }});
    ScriptedPeer outer({[&](PeerConnection& connection) {
        start_download(connection, content_.size());
        const auto second = download(inner);
        EXPECT_EQ(second.error().kind, ErrorKind::local_file);
        send_block(connection, content_);
        finish_download(connection);
    }});
    EXPECT_TRUE(download(outer));
    EXPECT_TRUE(read_file(target_) == content_);
}

TEST_F(Transfer, AServerThatWasNeverReachedIsNotTriedAgain) {
    ScriptedPeer peer({});
    peer.played();
    EXPECT_EQ(upload(peer).error().kind, ErrorKind::no_connection);
}

TEST_F(Transfer, AttemptsWithoutProgressEndAtTheTimeLimit) {
    const ScriptedPeer::Script breaks = [](PeerConnection& connection) {
        connection.expect<message::UploadFilePrepare>();
    };
    ScriptedPeer peer({breaks, breaks, breaks});
    const auto report = upload(peer, {}, hasty(50ms));
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::time_limit);
    EXPECT_EQ(peer.played(), 3U);
}

TEST_F(Transfer, AFileInUseIsWaitedForOnlyIfItMayBeOurOwnFormerUpload) {
    const ScriptedPeer::Script in_use = [](PeerConnection& connection) {
        prepare_upload(connection, message::status_file_in_use);
    };
    ScriptedPeer others({in_use});
    EXPECT_EQ(upload(others).error().status, message::status_file_in_use);

    const ScriptedPeer::Script breaks = [](PeerConnection& connection) {
        prepare_upload(connection, message::status_file_incomplete);
    };
    ScriptedPeer ours({breaks, [](PeerConnection& connection) {
                           prepare_upload(connection, message::status_file_in_use);
                           prepare_upload(connection, message::status_file_incomplete);
                           receive_upload(connection, 1'000'000);
                           finish_upload(connection);
                       }});
    EXPECT_TRUE(upload(ours));
}

TEST_F(Transfer, CancellationEndsAWaitAndKeepsThePart) {
    std::atomic<bool> cancelled = false;
    ScriptedPeer peer({[&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 1000));
        EXPECT_TRUE(connection.at_end());
    }});
    auto server = connect(peer, hasty(), patient([&] { return cancelled.load(); }));
    const auto report = transmit::download_file(
        server, {{1, 0, "a.bin"}, target_},
        [&](const Progress& progress) { cancelled = progress.done == 1000; });
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::cancelled);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_EQ(read_file(target_ + ".part"), content_.substr(0, 1000));
}

}  // namespace
