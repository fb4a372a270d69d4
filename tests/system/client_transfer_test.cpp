#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "client/remote_tree.h"
#include "src/message/status.h"
#include "tests/system/client_server_test.h"

// The client library's promises about files: nothing lost, nothing moved twice, nothing trusted
// that an earlier run left.
namespace {

namespace fs = std::filesystem;
using support::random_bytes;
using support::read_file;
using transmit::ErrorKind;

constexpr std::int64_t file_time = 1234567890;

class ClientTransferTest : public ClientServerTest {
  protected:
    using ClientServerTest::ClientServerTest;

    // As an upload of `bytes` that broke off would have left it on the server.
    void leave_stored_part(const std::string& name, std::string_view bytes) {
        stored_file::put(in_storage(name), bytes, file_time);
    }

    std::string work_file(const std::string& ending) const {
        return folder.path() + work_name("local", ending);
    }

    // The same file with other bytes.
    static void overwrite(const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary | std::ios::in).write(bytes.data(), std::ssize(bytes));
        fs::resize_file(path, bytes.size());
    }

    // Ends a download of "f" once so many bytes of it have come.
    void break_off_a_download(std::int64_t size) {
        struct Watch : RecordingObserver {
            std::atomic<bool> enough = false;
            std::int64_t size = 0;
            void progressed(std::size_t, const transmit::Progress& progress) override {
                enough = progress.done >= size;
            }
        } watch;
        watch.size = size;
        target.limits.cancelled = [&] {
            return watch.enough.load();
        };
        const auto summary = get("f", local, watch);
        target.limits.cancelled = {};
        ASSERT_TRUE(summary.stopped);
        EXPECT_EQ(summary.stopped->kind, ErrorKind::cancelled);
        EXPECT_FALSE(stored_file::exists(local));
    }

    const std::string content = random_bytes(3'000'000, 7);
};

struct Tampering {
    const char* name;
    std::size_t size;     // of the part
    std::size_t changed;  // the place of a wrong byte
    bool is_noticed;      // by a look at the last 64 KiB
};

class TamperedPartTest : public ClientTransferTest,
                         public testing::WithParamInterface<Tampering> {};

TEST_P(TamperedPartTest, IsNoticedAndTheResultIsRight) {
    std::string part = content.substr(0, GetParam().size);
    part.resize(GetParam().size, 'x');
    part[GetParam().changed] ^= 1;
    stored_file::put(local, content, file_time);
    const std::string side = work_name("f", ".new");
    for (const std::string& stored : {side + ".tcp", std::string("f.tcp")}) {
        const bool is_ours = stored != "f.tcp";
        leave_stored_part(stored, part);
        if (is_ours) {
            stored_file::put(in_storage("f"), "the version before");
        } else {
            fs::remove(in_storage("f"));
        }
        options.check =
            GetParam().is_noticed ? transmit::ResumeCheck::tail : transmit::ResumeCheck::all;
        EXPECT_TRUE(put(local, "f").complete());
        EXPECT_TRUE(read_file(in_storage("f")) == content);
        EXPECT_EQ(stored_file::time_of(in_storage("f")), file_time);
        EXPECT_FALSE(observer.starts_over.empty() && is_ours && GetParam().size <= content.size());
        // What isn't known to be an upload's may be a user's.
        EXPECT_EQ(std::distance(fs::directory_iterator(in_storage("")), {}), is_ours ? 1 : 2);
        EXPECT_TRUE(is_ours || read_file(in_storage(stored)) == part);
    }
}

INSTANTIATE_TEST_SUITE_P(Uploads, TamperedPartTest,
                         testing::Values(Tampering{"NearItsEnd", 2'000'000, 1'990'000, true},
                                         Tampering{"NearItsStart", 2'000'000, 10, false},
                                         Tampering{"Truncated", 600'000, 599'000, true},
                                         Tampering{"OfTheFullSize", 3'000'000, 2'999'999, true},
                                         Tampering{"Longer", 3'000'001, 3'000'000, true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(ClientTransferTest, AGoodStoredPartIsGoneOnWith) {
    stored_file::put(local, content, file_time);
    leave_stored_part("f.tcp", content.substr(0, 2'000'000));
    ASSERT_TRUE(put(local, "f").complete());
    ASSERT_EQ(observer.reports.size(), 1U);
    EXPECT_EQ(observer.reports[0].resumed_from, 2'000'000);
    EXPECT_EQ(observer.reports[0].moved, 1'000'000);
    EXPECT_TRUE(observer.starts_over.empty());
    EXPECT_TRUE(read_file(in_storage("f")) == content);
}

class OtherSuffixTest : public ClientTransferTest {
  protected:
    OtherSuffixTest() : ClientTransferTest({.temp_file_suffix = "~being-sent"}) {}
};

TEST_F(OtherSuffixTest, TheStoredPartIsFoundAndChecked) {
    stored_file::put(local, content, file_time);
    leave_stored_part("f~being-sent", content.substr(0, 2'000'000));
    ASSERT_TRUE(put(local, "f").complete());
    EXPECT_EQ(observer.reports.back().moved, 1'000'000);
    leave_stored_part("g~being-sent", std::string(2'000'000, 'x'));
    ASSERT_TRUE(put(local, "g").complete());
    EXPECT_EQ(observer.reports.back().moved, 3'000'000);
    EXPECT_TRUE(read_file(in_storage("g")) == content);
}

// A look at the folder now and then, while the new version is on its way, finds the old one whole.
TEST_F(ClientTransferTest, TheOldVersionStaysUntilTheNewOneIsWhole) {
    struct Watch : RecordingObserver {
        std::string path;
        bool was_there = true;
        void progressed(std::size_t, const transmit::Progress&) override {
            was_there = was_there && read_file(path) == "the version before";
        }
    } watch;
    watch.path = in_storage("f");
    stored_file::put(local, content, file_time);
    stored_file::put(in_storage("f"), "the version before");
    ASSERT_TRUE(put(local, "f", watch).complete());
    EXPECT_TRUE(watch.was_there);
    EXPECT_TRUE(read_file(in_storage("f")) == content);
    EXPECT_EQ(std::distance(fs::directory_iterator(in_storage("")), {}), 1);
}

TEST_F(ClientTransferTest, ASourceThatChangesOnTheWayIsSentAsItIsInTheEnd) {
    const std::string later = random_bytes(2'500'000, 8);
    struct Watch : RecordingObserver {
        std::function<void()> change;
        void progressed(std::size_t, const transmit::Progress& progress) override {
            if (progress.done > 0 && change) {
                std::exchange(change, {})();
            }
        }
    } watch;
    watch.change = [&] {
        stored_file::put(local, later, file_time + 1);
    };
    stored_file::put(local, content, file_time);
    const auto summary = put(local, "f", watch);
    ASSERT_TRUE(summary.complete());
    EXPECT_EQ(watch.starts_over.size(), 1U) << testing::PrintToString(watch.starts_over);
    EXPECT_TRUE(read_file(in_storage("f")) == later);
}

TEST_F(ClientTransferTest, ATreeGoesThereAndBackAndASecondRunMovesNothing) {
    const std::string tree = folder.path() + "tree/";
    const std::vector<std::string> names = {"plain",     "with blank ", "-dash",    "quo\"te'&<",
                                            "line\nend", "\x1b[31m",    "\xFF\xFE", "a.tcp",
                                            "\xC3\xA4",  "deep/er/f",   "%s",       "empty-file"};
    for (std::size_t index = 0; index < names.size(); ++index) {
        stored_file::put(tree + names[index],
                         names[index] == "empty-file" ? "" : random_bytes(1000 + index, index),
                         file_time);
    }
    for (int index = 0; index < 300; ++index) {
        stored_file::put(tree + "many/" + std::to_string(index), random_bytes(1024, 3), file_time);
    }
    stored_file::put(tree + "big", content, file_time);
    fs::create_directories(tree + "empty/folder");
    stored_file::put(tree + "back\\slash", "refused");
    for (const bool encrypted : {false, true}) {
        options.encrypted = encrypted;
        const transmit::RemotePath place{.path = encrypted ? "there/e" : "there/p"};
        const std::string back = folder.path() + (encrypted ? "e" : "p");
        for (const bool again : {false, true}) {
            const auto batch = transmit::upload_tree(tree, place);
            ASSERT_TRUE(batch) << batch.error().text;
            EXPECT_EQ(batch->refused.size(), 1U);
            const auto summary = transmit::upload_files(target, *batch, options, observer);
            EXPECT_TRUE(summary.failed.empty());
            EXPECT_EQ(again ? summary.already_there : summary.done, names.size() + 301);
            EXPECT_EQ(summary.moved == 0, again);
        }
        EXPECT_TRUE(fs::is_directory(in_storage(place.path + "/empty/folder")));
        for (const bool again : {false, true}) {
            transmit::RetryingConnection connection(target.endpoint);
            const auto batch = transmit::download_tree(connection, place, back);
            ASSERT_TRUE(batch) << batch.error().text;
            const auto summary = transmit::download_files(target, *batch, options, observer);
            // Two of the names are more than a listing can tell.
            EXPECT_EQ(summary.failed.size(), 2U);
            for (const auto& failure : summary.failed) {
                EXPECT_TRUE(failure.error.text.starts_with("listings can't tell this name"));
            }
            EXPECT_EQ(again ? summary.already_there : summary.done, names.size() + 299);
            EXPECT_EQ(summary.moved == 0, again);
        }
        for (const std::string& name : names) {
            if (name != "\xFF\xFE" && name != "\x1b[31m") {
                EXPECT_EQ(read_file(back + "/" + name), read_file(tree + name)) << name;
                EXPECT_EQ(stored_file::time_of(back + "/" + name), file_time) << name;
            }
        }
        EXPECT_TRUE(read_file(back + "/big") == content);
        EXPECT_TRUE(fs::is_directory(back + "/empty/folder"));
    }
}

// Names that servers and this program give to files on their way, and what they are made from.
TEST_F(ClientTransferTest, FilesWhoseNamesCollideWithWorkFilesAllArrive) {
    std::vector<std::string> tree_names{
        "x",          "x.part",        "x.part.info", "y", "y.tcp", "y.tcp.tcp", "y.incomplete",
        "y.overflow", "y.transmit-new"};
    for (const char* name : {"x", "y"}) {
        for (const char* ending : {".part", ".info", ".new"}) {
            tree_names.push_back(work_name(name, ending));
        }
    }
    for (const std::size_t length : {251U, 252U, 255U}) {
        tree_names.emplace_back(length, 'l');
    }
    const auto bytes_of = [&](std::size_t index, std::size_t round) {
        return random_bytes(round % 2 == 0 ? 2000 : 400'000,
                            static_cast<unsigned>(index + 100 * round));
    };
    for (const std::size_t round : {0U, 1U, 2U}) {
        const std::string tree = folder.path() + "tree/";
        const std::string back = folder.path() + "back/";
        for (std::size_t index = 0; index < tree_names.size(); ++index) {
            stored_file::put(tree + tree_names[index], bytes_of(index, round),
                             file_time + static_cast<std::int64_t>(round));
        }
        const auto up = transmit::upload_tree(tree, {.path = "t"});
        EXPECT_TRUE(transmit::upload_files(target, *up, options, observer).complete());
        transmit::RetryingConnection connection(target.endpoint);
        auto down = transmit::download_tree(connection, {.path = "t"}, back);
        down->files.clear();
        for (const std::string& name : tree_names) {
            down->files.push_back({{.path = "t/" + name}, back + name, {}, {}});
        }
        EXPECT_TRUE(transmit::download_files(target, *down, options, observer).complete());
        for (std::size_t index = 0; index < tree_names.size(); ++index) {
            EXPECT_TRUE(read_file(in_storage("t/" + tree_names[index])) == bytes_of(index, round))
                << tree_names[index];
            EXPECT_TRUE(read_file(back + tree_names[index]) == bytes_of(index, round))
                << tree_names[index];
        }
        for (const std::string& place : {in_storage("t"), back}) {
            EXPECT_EQ(std::distance(fs::directory_iterator(place), {}), std::ssize(tree_names));
        }
    }
}

TEST_F(ClientTransferTest, AUsersFileUnderTheTemporaryNameStays) {
    stored_file::put(local, content, file_time);
    for (const std::size_t size : {0U, 1000U, 4'000'000U}) {
        for (const std::int64_t time : {file_time, file_time + 1}) {
            const std::string mine = random_bytes(size, 3);
            stored_file::put(in_storage("f.tcp"), mine, time);
            EXPECT_TRUE(put(local, "f").complete());
            EXPECT_TRUE(read_file(in_storage("f")) == content);
            // An empty file of the source's time can't be told from an upload's.
            if (size > 0 || time != file_time) {
                EXPECT_TRUE(read_file(in_storage("f.tcp")) == mine) << size << ' ' << time;
            }
            fs::remove(in_storage("f"));
        }
    }
}

TEST_F(ClientTransferTest, WhatIsThereIsComparedByContentWhenTimeSaysTooLittle) {
    const std::string other = random_bytes(content.size(), 4);
    // Still fresh when a slow machine comes to it.
    const std::int64_t ahead = std::time(nullptr) + 3600;
    struct Case {
        const char* name;
        bool verify;
        bool checksum;
        std::int64_t time_here;
        std::int64_t time_there;
        bool same;
        bool moves;
    };
    for (const Case& one : {Case{"same time", false, false, file_time, file_time, false, false},
                            Case{"verify", true, false, file_time, file_time, false, true},
                            Case{"verify same", true, false, file_time, file_time, true, false},
                            Case{"checksum", false, true, file_time, file_time, false, true},
                            Case{"other time", false, true, file_time, 5, true, false},
                            Case{"fresh", false, false, ahead, ahead, false, true},
                            Case{"fresh same", false, false, ahead, ahead, true, false}}) {
        SCOPED_TRACE(one.name);
        options.verify = one.verify;
        options.checksum = one.checksum;
        const std::string& there = one.same ? content : other;
        stored_file::put(local, content, one.time_here);
        stored_file::put(in_storage("up"), there, one.time_there);
        stored_file::put(in_storage("down"), content, one.time_here);
        stored_file::put(folder.path() + "down", there, one.time_there);
        ASSERT_TRUE(put(local, "up").complete());
        EXPECT_EQ(observer.reports.back().already_there, !one.moves);
        ASSERT_TRUE(get("down", folder.path() + "down").complete());
        EXPECT_EQ(observer.reports.back().already_there, !one.moves);
        if (one.moves) {
            EXPECT_TRUE(read_file(in_storage("up")) == content);
            EXPECT_TRUE(read_file(folder.path() + "down") == content);
        }
    }
}

// Deeper than the system takes a path at once.
TEST_F(ClientTransferTest, ADeepTreeComesWhole) {
    std::string deep = "t";
    for (int level = 0; level < 400; ++level) {
        deep += "/d";
    }
    stored_file::put(in_storage(deep + "/f"), "deep", file_time);
    transmit::RetryingConnection connection(target.endpoint);
    std::string back = folder.path() + std::string(200, 'b');
    const auto batch = transmit::download_tree(connection, {.path = "t"}, back);
    ASSERT_TRUE(batch) << batch.error().text;
    EXPECT_TRUE(transmit::download_files(target, *batch, options, observer).complete());
    EXPECT_EQ(read_file(back + deep.substr(1) + "/f"), "deep");
}

TEST_F(ClientTransferTest, ABigDownloadComesInSeveralStreamsAndGoesOnInThem) {
    options.single_stream = std::chrono::seconds::zero();
    const std::string bytes = random_bytes(70'000'000, 9);
    stored_file::put(in_storage("f"), bytes, file_time);
    ASSERT_NO_FATAL_FAILURE(break_off_a_download(20'000'000));
    ASSERT_TRUE(get("f", local).complete());
    EXPECT_TRUE(read_file(local) == bytes);
    EXPECT_EQ(stored_file::time_of(local), file_time);
    const transmit::TransferReport& report = observer.reports.back();
    EXPECT_GE(report.resumed_from, 20'000'000);
    EXPECT_LE(report.resumed_from + report.moved, std::ssize(bytes) + 4 * 64 * 1024);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(ClientTransferTest, APartOfAnEarlierDownloadIsCheckedBeforeItIsGoneOnWith) {
    struct Case {
        const char* name;
        std::size_t size;     // of the part, once somebody changed it; 0: as it is
        std::size_t changed;  // bytes before its end where one is wrong; 0: none
        bool is_good;
    };
    stored_file::put(in_storage("f"), content, file_time);
    for (const Case& one :
         {Case{"as it was left", 0, 0, true}, Case{"a byte changed", 0, 1000, false},
          Case{"truncated", 600'000, 0, true},
          Case{"truncated and a byte changed", 600'000, 1000, false},
          Case{"longer than the source", 3'500'000, 0, true}}) {
        SCOPED_TRACE(one.name);
        ASSERT_NO_FATAL_FAILURE(break_off_a_download(1'000'000));
        std::string part = read_file(work_file(".part"));
        part.resize(one.size > 0 ? one.size : part.size(), 'x');
        if (one.changed > 0) {
            part[part.size() - one.changed] ^= 1;
        }
        overwrite(work_file(".part"), part);
        ASSERT_TRUE(get("f", local).complete());
        EXPECT_EQ(observer.starts_over.size(), one.is_good ? 0U : 1U);
        EXPECT_EQ(observer.reports.back().resumed_from > 0, one.is_good);
        EXPECT_TRUE(read_file(local) == content);
        EXPECT_FALSE(stored_file::exists(work_file(".info")));
        fs::remove(local);
        observer.starts_over.clear();
    }
}

TEST_F(ClientTransferTest, VerificationReadsBothWaysAndNoticesAChangedFile) {
    options.verify = true;
    stored_file::put(local, content, file_time);
    ASSERT_TRUE(put(local, "f").complete());
    ASSERT_TRUE(get("f", folder.path() + "back").complete());
    for (const auto& report : observer.reports) {
        EXPECT_TRUE(report.verified);
    }
    // What was in the part before goes unseen by a look at its end.
    std::string part = content.substr(0, 2'000'000);
    part[10] ^= 1;
    leave_stored_part("g.tcp", part);
    ASSERT_TRUE(put(local, "g").complete());
    EXPECT_EQ(observer.starts_over.size(), 1U);
    EXPECT_TRUE(read_file(in_storage("g")) == content);
}

TEST_F(ClientTransferTest, AStreamIsAFileToo) {
    transmit::UploadBatch up;
    std::size_t given = 0;
    up.files.push_back({"", {.path = "f"}, [&](std::span<char> room, const transmit::Cancelled&) {
                            const auto size = std::min(room.size(), content.size() - given);
                            content.copy(room.data(), size, given);
                            given += size;
                            return transmit::Result<std::size_t>(size);
                        }});
    ASSERT_TRUE(transmit::upload_files(target, up, options, observer).complete());
    EXPECT_TRUE(read_file(in_storage("f")) == content);

    std::string taken;
    transmit::DownloadBatch down;
    down.files.push_back({{.path = "f"},
                          "",
                          [&](std::span<const iovec> pieces, const transmit::Cancelled&) {
                              for (const iovec& piece : pieces) {
                                  taken.append(static_cast<const char*>(piece.iov_base),
                                               piece.iov_len);
                              }
                              return transmit::Result<void>();
                          },
                          {}});
    ASSERT_TRUE(transmit::download_files(target, down, options, observer).complete());
    EXPECT_TRUE(taken == content);
}

TEST_F(ClientTransferTest, ADryRunChangesNothing) {
    options.dry_run = true;
    stored_file::put(local, content, file_time);
    ASSERT_TRUE(put(local, "folder/f").complete());
    EXPECT_FALSE(stored_file::exists(in_storage("folder")));
    stored_file::put(in_storage("g"), content, file_time);
    ASSERT_TRUE(get("g", folder.path() + "new/g").complete());
    EXPECT_FALSE(stored_file::exists(folder.path() + "new"));
    for (const auto& report : observer.reports) {
        EXPECT_EQ(report.moved, 0);
        EXPECT_FALSE(report.already_there);
    }
}

TEST_F(ClientTransferTest, AFileThatAnotherClientSendsIsWaitedFor) {
    Peer other(server.transmit_port());
    ASSERT_EQ(other.prepare(request::Upload{.path = "f", .size = 2000}).status,
              message::status_file_incomplete);
    other.send(request::upload_file_data(content.substr(0, 1000)));
    while (fs::file_size(in_storage("f.tcp")) < 1000) {
        std::this_thread::yield();
    }
    stored_file::put(local, content, file_time);
    struct Watch : RecordingObserver {
        std::function<void()> act;
        void retrying(std::size_t file, const transmit::Error& reason,
                      std::chrono::milliseconds pause, std::chrono::milliseconds left) override {
            RecordingObserver::retrying(file, reason, pause, left);
            if (act) {
                std::exchange(act, {})();
            }
        }
    } watch;
    watch.act = [&] {
        other.socket().reset();
    };
    EXPECT_TRUE(put(local, "f", watch).complete());
    ASSERT_FALSE(watch.retries.empty());
    EXPECT_EQ(watch.retries[0].status, message::status_file_in_use);
    EXPECT_TRUE(read_file(in_storage("f")) == content);
}

// What it was sent behind leaves neither a wrong file nor one that was set aside.
TEST_F(ClientTransferTest, APartThatAppearsAfterTheListingSpoilsNoSmallFile) {
    struct Watch : RecordingObserver {
        std::function<void()> act;
        void started(std::size_t file) override {
            if (file == 1 && act) {
                std::exchange(act, {})();
            }
        }
    } watch;
    watch.act = [&] {
        leave_stored_part("b.tcp", "another client's");
    };
    transmit::UploadBatch batch;
    for (const char* name : {"a", "b"}) {
        stored_file::put(folder.path() + name, random_bytes(1000, 5), file_time);
        batch.files.push_back({folder.path() + name, {.path = name}, {}, {}, 1000});
    }
    EXPECT_TRUE(transmit::upload_files(target, batch, options, watch).complete());
    EXPECT_EQ(read_file(in_storage("b")), random_bytes(1000, 5));
    EXPECT_EQ(std::distance(fs::directory_iterator(in_storage("")), {}), 2);
}

TEST_F(ClientTransferTest, AWalkShowsAllFoldersParentsFirst) {
    stored_file::put(in_storage("t/b/c/f"), "1", 5);
    stored_file::put(in_storage("t/a/g"), "22", 6);
    transmit::RetryingConnection connection(reached_by(server.transmit_port()).endpoint);
    std::vector<std::string> seen;
    const auto walked = transmit::walk_remote(connection, {.path = "t"},
                                              [&](const std::string& path, const auto& entries) {
                                                  seen.push_back(path + ":");
                                                  for (const transmit::Entry& entry : *entries) {
                                                      seen.push_back(entry.name);
                                                  }
                                              });
    ASSERT_TRUE(walked) << walked.error().text;
    EXPECT_EQ(seen, (std::vector<std::string>{":", "a", "b", "a:", "g", "b:", "c", "b/c:", "f"}));

    const auto file = transmit::stat_path(connection, {.path = "t/a/g"});
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size, 2);
    EXPECT_EQ(file->time, 6);
    EXPECT_TRUE(transmit::stat_path(connection, {.path = "t/a"})->is_folder);
    EXPECT_EQ(transmit::stat_path(connection, {.path = "t/x"}).error().status,
              message::status_access_failed);
}

}  // namespace
