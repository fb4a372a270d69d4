#include <thread>

#include "tests/unit/client/transfer_fixture.h"

namespace {

TEST_F(Transfer, UploadGoesByteForByteOverTheWire) {
    write_file(source_, "hello");
    set_time(source_, 1000);
    std::string asked;
    std::string sent;
    ScriptedPeer peer({empty([&](PeerConnection& connection) {
        asked = connection.receive(45);
        connection.send("\x00\x01\x00\x14\0\0\0\0\0\0\0\0\0\0\0\0"s);
        sent = connection.receive(15);
        connection.send("\x00\x05\x00\x00"s);
    })});
    const auto report = upload(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_EQ(asked,
              "\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\5\0\0\0\0\0\0\x03\xE8\0\5\0\0\0\0\0\0"
              "a.bin"s);
    EXPECT_EQ(sent, "\0\x02\0\0\0\0\0\5hello\0\x04"s);
}

TEST_F(Transfer, SmallUploadsGoOutBeforeTheFirstAnswer) {
    transmit::UploadBatch batch;
    for (const char* name : {"a", "b", "c"}) {
        const std::string path = folder_.path() + name;
        write_file(path, name);
        batch.files.push_back({path, {1, 0, name}, {}, {}, 1});
    }
    options_.files_at_once = 1;
    ScriptedPeer peer({empty([&](PeerConnection& connection) {
        for (const char* name : {"a", "b", "c"}) {
            connection.expect<message::UploadFilePrepare>();
            EXPECT_EQ(receive_upload(connection, 1), name);
            connection.expect<message::UploadFileFinish>();
        }
        message::UploadFilePrepareResponse begun{};
        begun.status = message::status_file_incomplete;
        message::UploadFilePrepareResponse refused{};
        refused.status = message::status_file_in_use;
        for (const auto& response : {begun, refused, begun}) {
            const bool failed = response.status != message::status_file_incomplete;
            const std::uint16_t status =
                failed ? message::status_invalid_connection_data : message::status_ok;
            connection.answer<message::UploadFilePrepare>(response);
            if (failed) {
                connection.answer<message::UploadFileData>({.type = 0, .status = status});
            }
            connection.answer<message::UploadFileFinish>({.type = 0, .status = status});
        }
        // The one that was refused, with care.
        prepare_upload(connection, message::status_file_incomplete);
        EXPECT_EQ(receive_upload(connection, 1), "b");
        finish_upload(connection);
    })});
    const auto summary = transmit::upload_files({{"127.0.0.1", peer.port()}, limits_, hasty()},
                                                batch, options_, watch_);
    EXPECT_TRUE(summary.complete());
    EXPECT_EQ(summary.done, 3U);
}

TEST_F(Transfer, SmallDownloadsAreAllAskedForAtOnce) {
    transmit::DownloadBatch batch;
    for (const char* name : {"a", "b", "c"}) {
        batch.files.push_back(
            {{1, 0, name}, folder_.path() + name, {}, transmit::FileStamp{1, source_time}});
    }
    options_.files_at_once = 1;
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        connection.expect<message::SetTransmitSpeed>();
        for (int file = 0; file < 3; ++file) {
            connection.expect<message::DownloadFilePrepare>();
            connection.expect<message::DownloadFileData>();
            connection.expect<message::DownloadFileFinish>();
        }
        connection.expect<message::SetTransmitSpeed>();
        connection.answer<message::SetTransmitSpeed>();
        for (const char* name : {"a", "b", "c"}) {
            message::DownloadFilePrepareResponse response{};
            response.file_size = 1;
            response.file_time = source_time;
            connection.answer<message::DownloadFilePrepare>(response);
            send_block(connection, name);
            send_block(connection, "");
            connection.answer<message::DownloadFileFinish>();
        }
        connection.answer<message::SetTransmitSpeed>();
    })});
    const auto summary = transmit::download_files({{"127.0.0.1", peer.port()}, limits_, hasty()},
                                                  batch, options_, watch_);
    EXPECT_TRUE(summary.complete());
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(read_file(folder_.path() + name), name);
        EXPECT_EQ(time_of(folder_.path() + name), source_time);
    }
}

TEST_F(Transfer, AFileWhoseTargetProvesAFolderGoesIntoIt) {
    const auto script = greeted([&](PeerConnection& connection) {
        list(connection, R"(<root><folder name="docs"/></root>)");
        list_nothing(connection);
        EXPECT_EQ(prepare_upload(connection, message::status_file_incomplete), "docs/source.bin");
        receive_upload(connection, content_.size());
        finish_upload(connection);
    });
    transmit::UploadBatch batch;
    batch.files.push_back({source_, {1, 0, "docs"}, {}, "source.bin"});
    ScriptedPeer peer({script});
    EXPECT_TRUE(transmit::upload_files({{"127.0.0.1", peer.port()}, limits_, hasty()}, batch,
                                       options_, watch_)
                    .complete());
    EXPECT_EQ(watch_.place, "docs/source.bin");
}

TEST_F(Transfer, UploadEndsWithTheStatusOfARefusal) {
    ScriptedPeer at_prepare({empty([&](PeerConnection& peer) {
        peer.expect<message::UploadFilePrepare>();
        receive_upload(peer, content_.size());
        answer_prepare(peer, message::status_path_is_directory);
    })});
    EXPECT_EQ(upload(at_prepare).error().status, message::status_path_is_directory);

    ScriptedPeer at_finish({empty([](PeerConnection& peer) {
        prepare_upload(peer, message::status_file_incomplete);
        receive_upload(peer, 1'000'000);
        finish_upload(peer, message::status_rename_failed);
    })});
    EXPECT_EQ(upload(at_finish).error().status, message::status_rename_failed);
}

// Data goes ahead of the prepare's answer. Where that proves wrong, what is stored is somebody
// else's and is left alone.
TEST_F(Transfer, AnUploadThatDidNotBeginAsListedStartsOverUnderASideName) {
    std::string side;
    std::string renamed;
    ScriptedPeer peer({empty([&](PeerConnection& connection) {
                           connection.expect<message::UploadFilePrepare>();
                           receive_upload(connection, content_.size());
                           answer_prepare(connection, message::status_file_incomplete, 1000);
                           EXPECT_TRUE(connection.at_end());
                       }),
                       empty([&](PeerConnection& connection) {
                           side = prepare_upload(connection, message::status_file_incomplete);
                           EXPECT_TRUE(receive_upload(connection, content_.size()) == content_);
                           finish_upload(connection);
                           connection.expect<message::RenamePath>(&renamed);
                           connection.answer<message::RenamePath>();
                       })});
    const auto report = upload(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(watch_.starts_over, 1);
    EXPECT_TRUE(transmit::detail::is_work_name(side, transmit::detail::side_ending)) << side;
    EXPECT_EQ(renamed, side + "a.bin");
}

// The temporary file of an upload that the server has not yet seen end bears the time of its last
// write. Data sent ahead would come behind what it holds, if it ends before that comes.
TEST_F(Transfer, APartThatMayStillBeWrittenIsNotSentOntoUnasked) {
    const std::string part(content_, 0, 600'000);
    const std::string tail(part, part.size() - (64UL << 10));
    const auto listing = [](std::int64_t time) {
        return R"(<root><file name="a.bin.tcp" size="600000" time=")" + std::to_string(time) +
               R"("/></root>)";
    };
    const auto send_tail = [&](PeerConnection& connection) {
        EXPECT_EQ(start_download(connection, part.size()), std::ssize(part) - std::ssize(tail));
        send_block(connection, tail);
        send_block(connection, "");
        connection.expect<message::DownloadFileFinish>();
        connection.answer<message::DownloadFileFinish>();
    };
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        list(connection, listing(source_time + 1000));
        send_tail(connection);
        prepare_upload(connection, message::status_file_incomplete, std::ssize(part));
        connection.expect<message::CleanupConnection>();
        connection.answer<message::CleanupConnection>();
        list(connection, listing(source_time));
        send_tail(connection);
        prepare_upload(connection, message::status_file_incomplete, std::ssize(part));
        EXPECT_TRUE(part + receive_upload(connection, content_.size() - part.size()) == content_);
        finish_upload(connection);
    })});
    const auto report = upload(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(watch_.starts_over, 0);
}

// The server may still write what an earlier connection brought: that is worth another attempt.
TEST_F(Transfer, APartThatGrowsWhileItIsComparedIsInUse) {
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        list(connection, "<root><file name='a.bin.tcp' size='1000' time='" +
                             std::to_string(source_time) + "'/></root>");
        start_download(connection, 1000);
        send_block(connection, content_.substr(0, 1500));
    })});
    EXPECT_EQ(upload(peer, hasty(0s)).error().status, message::status_file_in_use);
    EXPECT_EQ(watch_.starts_over, 0);
}

TEST_F(Transfer, UploadStopsWhenTheServerReportsAFailedBlock) {
    std::filesystem::resize_file(source_, 1'000'000'000);
    ScriptedPeer peer({empty([](PeerConnection& connection) {
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
    })});
    const auto report = upload(peer);
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::refused);
    EXPECT_EQ(report.error().status, message::status_write_failed);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_LT(watch_.last.done, 500'000'000);
}

TEST_F(Transfer, UploadOfAFileThatNeverRestsIsGivenUp) {
    const auto takes_what_comes = [](PeerConnection& connection) {
        prepare_upload(connection, message::status_file_incomplete);
        try {
            receive_upload(connection, 2'000'000);
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "the client has gone");
        }
    };
    const auto discards_first = [&](PeerConnection& connection) {
        prepare_upload(connection, message::status_file_incomplete);
        connection.expect<message::CleanupConnection>();
        connection.answer<message::CleanupConnection>();
        takes_what_comes(connection);
    };
    ScriptedPeer peer({empty(takes_what_comes), empty(discards_first), empty(discards_first),
                       empty(discards_first)});
    std::uintmax_t size = 1'000'000;
    watch_.on_progress = [&](const Progress& progress) {
        if (progress.done > 0) {
            std::filesystem::resize_file(source_, ++size);
        }
    };
    const auto report = upload(peer);
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::file_changed);
    EXPECT_EQ(watch_.starts_over, 3);
    EXPECT_EQ(peer.played(), 4U);
}

TEST_F(Transfer, DownloadResumesItsPartAfterABrokenConnection) {
    std::int64_t resumed = 0;
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
                           EXPECT_EQ(start_download(connection, content_.size()), 0);
                           send_block(connection, content_.substr(0, 65'536));
                           connection.send(bytes_of(message::DataResponse{9, 0, 65'536}) +
                                           content_.substr(65'536, 1000));
                       }),
                       greeted([&](PeerConnection& connection) {
                           resumed = start_download(connection, content_.size());
                           send_block(connection, content_.substr(66'536));
                           finish_download(connection, content_.size());
                       })});
    const auto report = download(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(peer.played(), 2U);
    EXPECT_EQ(resumed, 66'536);
    EXPECT_TRUE(read_file(target_) == content_);
    EXPECT_EQ(time_of(target_), source_time);
    EXPECT_EQ(names(), (std::vector<std::string>{"source.bin", "target.bin"}));
}

// A later run looks at the last 64 KiB of what it finds.
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
    for (const Case& later : {Case{source_time, 1'000'000, 400'000 - 65'536},
                              Case{source_time + 1, 1'000'000, 0}, Case{source_time, 999'999, 0}}) {
        ScriptedPeer broken({greeted(break_off)});
        const auto report = download(broken, hasty(0s));
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::connection_lost);
        EXPECT_EQ(std::filesystem::file_size(work_file()), 400'000U);
        EXPECT_FALSE(std::filesystem::exists(target_));

        const std::string content = content_.substr(0, later.size);
        ScriptedPeer peer({greeted([&](PeerConnection& connection) {
            const std::int64_t offset = start_download(connection, later.size, later.time);
            EXPECT_EQ(offset, later.offset);
            send_block(connection, content.substr(static_cast<std::size_t>(offset)));
            finish_download(connection, later.size, later.time);
        })});
        ASSERT_TRUE(download(peer));
        EXPECT_TRUE(read_file(target_) == content);
        EXPECT_EQ(time_of(target_), later.time);
        std::filesystem::remove(target_);
    }
}

TEST_F(Transfer, ADownloadThatIsNeverAsAnnouncedIsGivenUp) {
    for (const std::size_t length : {999'999U, 1'000'001U}) {
        watch_.starts_over = 0;
        const auto script = greeted([=](PeerConnection& connection) {
            start_download(connection, 1'000'000);
            try {
                send_block(connection, std::string(length, 'x'));
                send_block(connection, "");
            } catch (const std::runtime_error&) {
                // The client may leave as soon as it has seen a byte too many.
            }
        });
        ScriptedPeer peer({script, script, script, script});
        const auto report = download(peer);
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::file_changed);
        EXPECT_EQ(watch_.starts_over, 3);
        EXPECT_FALSE(std::filesystem::exists(target_));
    }
}

TEST_F(Transfer, ASourceThatChangedWhileItWasFetchedIsFetchedAnew) {
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, std::string(content_.size(), 'x'));
        finish_download(connection, content_.size(), source_time + 1);
        start_download(connection, content_.size(), source_time + 1);
        send_block(connection, content_);
        finish_download(connection, content_.size(), source_time + 1);
    })});
    const auto report = download(peer);
    ASSERT_TRUE(report) << report.error().text;
    EXPECT_EQ(watch_.starts_over, 1);
    EXPECT_TRUE(read_file(target_) == content_);
}

TEST_F(Transfer, DownloadEndsWithTheStatusOfARefusal) {
    ScriptedPeer peer({greeted(
        [](PeerConnection& server) { prepare_download(server, message::status_access_failed); })});
    EXPECT_EQ(download(peer).error().status, message::status_access_failed);
    EXPECT_EQ(names(), std::vector<std::string>{"source.bin"});

    ScriptedPeer in_the_stream({greeted([&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 1000));
        send_block(connection, "", message::status_read_failed);
    })});
    EXPECT_EQ(download(in_the_stream).error().status, message::status_read_failed);
    EXPECT_EQ(read_file(work_file()), content_.substr(0, 1000));
}

TEST_F(Transfer, DownloadDistrustsWhatStandsBetweenTheBlocks) {
    const std::string block = bytes_of(message::DataResponse{9, 0, 32});
    for (const std::string& bytes :
         {bytes_of(message::DataResponse{11, 0, 0}), block + std::string(32, 'x'),
          bytes_of(message::DataResponse{9, 0, 0xFFFFFFFF})}) {
        options_.encrypted = true;
        ScriptedPeer peer({greeted([&](PeerConnection& connection) {
            start_download(connection, 100);
            connection.send(bytes);
        })});
        const auto report = download(peer);
        ASSERT_FALSE(report);
        EXPECT_EQ(report.error().kind, ErrorKind::bad_answer);
    }
}

TEST_F(Transfer, OnlyOneDownloadAtATimeWritesAPart) {
    ScriptedPeer inner({greeted([&](PeerConnection& peer) {
        prepare_download(peer, message::status_ok, content_.size());
    })});
    ScriptedPeer outer({greeted([&](PeerConnection& connection) {
        start_download(connection, content_.size());
        while (!std::filesystem::exists(work_file(transmit::detail::info_ending))) {
            std::this_thread::yield();
        }
        const auto second = download(inner);
        EXPECT_EQ(second.error().kind, ErrorKind::local_file);
        send_block(connection, content_);
        finish_download(connection, content_.size());
    })});
    EXPECT_TRUE(download(outer));
    EXPECT_TRUE(read_file(target_) == content_);
}

TEST_F(Transfer, AServerThatWasNeverReachedIsNotTriedAgain) {
    ScriptedPeer peer({});
    peer.played();
    EXPECT_EQ(upload(peer).error().kind, ErrorKind::no_connection);
}

// Two of these attempts take longer than the limit, and one of them may.
TEST_F(Transfer, AttemptsWithoutProgressEndAtTheTimeLimit) {
    constexpr std::chrono::milliseconds limit = 100ms;
    const auto breaks_late = greeted([limit](PeerConnection& connection) {
        connection.expect<message::DownloadFilePrepare>();
        std::this_thread::sleep_for(limit * 6 / 10);
    });
    ScriptedPeer peer({breaks_late, breaks_late});
    const auto report = download(peer, hasty(limit));
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::time_limit);
    EXPECT_LE(watch_.retries.size(), 1U);
}

TEST_F(Transfer, AStandstillIsToldAndOutlived) {
    limits_.stall = 1ms;
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 1000));
        while (watch_.stalls == 0) {
            std::this_thread::yield();
        }
        send_block(connection, content_.substr(1000));
        finish_download(connection, content_.size());
    })});
    EXPECT_TRUE(download(peer));
}

TEST_F(Transfer, CancellationEndsAWaitAndKeepsThePart) {
    std::atomic<bool> cancelled = false;
    limits_ = patient([&] { return cancelled.load(); });
    watch_.on_progress = [&](const Progress& progress) {
        cancelled = progress.done == 1000;
    };
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        start_download(connection, content_.size());
        send_block(connection, content_.substr(0, 1000));
        EXPECT_TRUE(connection.at_end());
    })});
    const auto report = download(peer);
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::cancelled);
    EXPECT_EQ(peer.played(), 1U);
    EXPECT_EQ(read_file(work_file()), content_.substr(0, 1000));
}

TEST_F(Transfer, ABatchEndsAtItsTimeLimitHoweverMuchMoves) {
    options_.max_time = 1s;
    ScriptedPeer peer({greeted([&](PeerConnection& connection) {
        start_download(connection, 1'000'000'000);
        for (;;) {
            send_block(connection, "x");
        }
    })});
    const auto report = download(peer);
    ASSERT_FALSE(report);
    EXPECT_EQ(report.error().kind, ErrorKind::time_limit);
}

// Names as hostile servers send them.
TEST_F(Transfer, NoNameOfATreeLeadsOutOfItsFolder) {
    const std::string listing = R"(<root><folder name=".."/><folder name="a/b"/><file name="" )"
                                R"(size="1" time="1"/><file name="..\x" size="1" time="1"/>)"
                                R"(<file name="." size="1" time="1"/><file name="good" size="1" )"
                                R"(time="1"/></root>)";
    ScriptedPeer peer({greeted([&](PeerConnection& connection) { list(connection, listing); })});
    transmit::RetryingConnection server({"127.0.0.1", peer.port()});
    const auto batch = transmit::download_tree(server, {1, 0, "t"}, folder_.path() + "t");
    ASSERT_TRUE(batch) << batch.error().text;
    ASSERT_EQ(batch->files.size(), 1U);
    EXPECT_EQ(batch->files[0].local_path, folder_.path() + "t/good");
    EXPECT_EQ(batch->refused.size(), 5U);
    ASSERT_EQ(batch->folders.size(), 1U);
    EXPECT_EQ(batch->folders[0].root, folder_.path() + "t");
    EXPECT_EQ(batch->folders[0].below, "");
}

// Ten seconds of two transfers that share a limit, on a clock of the test's own.
TEST(RateLimiter, KeepsToItsRateWhateverTheSteps) {
    for (const std::uint64_t rate : {10'000ULL, 1'000'000ULL, 100'000'000ULL}) {
        transmit::RateLimiter limiter(rate);
        const transmit::RateLimiter::Clock::time_point start{};
        std::array<transmit::RateLimiter::Clock::time_point, 2> now{start, start};
        std::uint64_t moved = 0;
        while (std::min(now[0], now[1]) < start + 10s) {
            auto& earlier = now[0] <= now[1] ? now[0] : now[1];
            const std::size_t size = limiter.step(1 << 20);
            earlier += limiter.reserve(size, earlier);
            moved += earlier < start + 10s ? size : 0;
        }
        EXPECT_NEAR(static_cast<double>(moved), 10.0 * static_cast<double>(rate),
                    0.5 * static_cast<double>(rate));
    }
}

}  // namespace
