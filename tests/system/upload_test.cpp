#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

namespace {

using message::status_ok;
using request::Upload;
using stored_file::exists;

constexpr std::int64_t announced_time = 5000;
const std::string content = support::random_bytes(1000, 1);

UploadPrepared go_on_from(std::int64_t offset) {
    return {message::status_file_incomplete, offset};
}

UploadPrepared complete(std::int64_t size) {
    return {status_ok, size};
}

std::string success(const std::string& target, std::size_t size) {
    return "remote upload file (" + target + ") success, size is " + std::to_string(size);
}

class UploadTest : public ServerTest {
  protected:
    explicit UploadTest(const support::ServerSettings& settings = {}) : ServerTest(settings) {}

    static Upload announced(const std::string& path, std::size_t size = content.size(),
                            std::int64_t time = announced_time) {
        return {.path = path, .size = static_cast<std::int64_t>(size), .time = time};
    }

    bool logged(const std::string& text) const {
        return server.root().run_log().find(text) != std::string::npos;
    }
    bool recorded(const std::string& text) const {
        return server.root().record().find(text) != std::string::npos;
    }

    void expect_arrived(const std::string& name, const std::string& bytes = content) {
        EXPECT_EQ(support::read_file(in_storage(name)), bytes);
        EXPECT_EQ(stored_file::time_of(in_storage(name)), announced_time);
        EXPECT_FALSE(exists(in_storage(name + ".tcp")));
        EXPECT_TRUE(recorded(success(in_storage(name), bytes.size())));
    }
};

// What lies at a name before the prepare: that many bytes of the content that is about to come (or
// more), and their time.
struct Lying {
    std::size_t size;
    std::int64_t time;
};

struct PrepareCase {
    const char* what;
    std::optional<Lying> target;
    std::optional<Lying> temporary;
    std::size_t announced_size;
    UploadPrepared answer;
};

void lay(const std::string& path, const std::optional<Lying>& lying) {
    if (lying) {
        stored_file::put(path, (content + content).substr(0, lying->size), lying->time);
    }
}

TEST_F(UploadTest, DecidesByTargetAndTemporaryFile) {
    const Lying same{1000, announced_time};
    const PrepareCase cases[] = {
        {"nothing lies there", {}, {}, 1000, go_on_from(0)},
        {"the file itself", same, {}, 1000, complete(1000)},
        {"the file itself, and a part", same, Lying{10, announced_time}, 1000, complete(1000)},
        {"the file itself, and a stranger", same, Lying{2000, 3}, 1000, complete(1000)},
        {"another size", Lying{999, announced_time}, {}, 1000, go_on_from(0)},
        {"another time", Lying{1000, 4999}, {}, 1000, go_on_from(0)},
        {"a whole temporary file", {}, same, 1000, complete(1000)},
        {"a whole one and an old target", Lying{7, 8}, same, 1000, complete(1000)},
        {"a part", {}, Lying{100, announced_time}, 1000, go_on_from(100)},
        {"a part and an old target", Lying{7, 8}, Lying{100, announced_time}, 1000,
         go_on_from(100)},
        {"an empty part", {}, Lying{0, announced_time}, 1000, go_on_from(0)},
        {"a part of another time", {}, Lying{100, 4999}, 1000, go_on_from(0)},
        {"a whole one of another time", Lying{7, 8}, Lying{1000, 5001}, 1000, go_on_from(0)},
        {"a part that is too long", {}, Lying{1001, announced_time}, 1000, go_on_from(0)},
        {"an empty file, nothing there", {}, {}, 0, go_on_from(0)},
        {"an empty file, itself", Lying{0, announced_time}, {}, 0, complete(0)},
        {"an empty file, whole", {}, Lying{0, announced_time}, 0, complete(0)},
        {"an empty file, a part", {}, Lying{5, announced_time}, 0, go_on_from(0)},
    };
    int number = 0;
    for (const PrepareCase& row : cases) {
        SCOPED_TRACE(row.what);
        const std::string name = std::to_string(number++);
        lay(in_storage(name), row.target);
        lay(in_storage(name + ".tcp"), row.temporary);

        EXPECT_EQ(peer.prepare(announced(name, row.announced_size)), row.answer);
        if (row.answer.status == status_ok) {
            EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);
        } else {
            EXPECT_FALSE(exists(in_storage(name)));
            EXPECT_EQ(std::filesystem::file_size(in_storage(name + ".tcp")), row.answer.offset);
            peer.send_file_data(content.substr(0, row.announced_size)
                                    .substr(static_cast<std::size_t>(row.answer.offset)),
                                99);
            EXPECT_EQ(peer.finish_upload(), status_ok);
        }
        expect_arrived(name, content.substr(0, row.announced_size));
    }
}

TEST_F(UploadTest, RefusesWithoutHarmToARunningTransfer) {
    std::filesystem::create_directories(in_storage("folder/inside"));
    std::filesystem::create_directories(in_storage("blocked.tcp/inside"));
    stored_file::put(in_storage("folder.tcp"), "kept");
    stored_file::put(in_storage("file"), "kept");
    const std::string longest_name(253, 'n');
    const std::string too_long = "new/" + std::string(250, 'p') + "/" + std::string(250, 'q') +
                                 "/" + std::string(250, 'r') + "/" + std::string(250, 's');
    struct Refusal {
        Upload upload;
        message::Status status;
        std::string log_text;
    };
    Upload elsewhere = announced("x");
    elsewhere.storage_id = 77;
    const Refusal refusals[] = {
        {elsewhere, message::status_invalid_storage_id, "invalid storage id: 77"},
        {announced("folder"), message::status_path_is_directory,
         "path is a directory (" + in_storage("folder") + ")"},
        {announced(""), message::status_path_is_directory, "path is a directory"},
        {announced("blocked"), message::status_delete_failed,
         "unlink file failed (" + in_storage("blocked.tcp") + ")"},
        {announced("file/below/it"), message::status_create_directory_failed,
         "create directory failed (" + in_storage("file/below") + ")"},
        {announced(longest_name), message::status_open_write_failed,
         "open file to write failed (" + in_storage(longest_name + ".tcp") + ")"},
        {announced(too_long), message::status_open_write_failed, ""},
        {announced("running"), message::status_file_in_use,
         "other node is uploading same file (" + in_storage("running") + ")"},
        {announced("running", 5, 6), message::status_file_in_use, ""},
    };

    ASSERT_EQ(peer.prepare(announced("running")), go_on_from(0));
    peer.send_file_data(content.substr(0, 500));
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.upload.path);
        // Twice: a refusal that kept its claim would answer the second one otherwise.
        EXPECT_EQ(peer.prepare(refusal.upload).status, refusal.status);
        EXPECT_EQ(peer.prepare(refusal.upload).status, refusal.status);
        EXPECT_TRUE(logged(refusal.log_text));
    }
    EXPECT_FALSE(exists(in_storage("new")));
    EXPECT_EQ(support::read_file(in_storage("folder.tcp")), "kept");
    EXPECT_TRUE(exists(in_storage("folder/inside")));
    EXPECT_TRUE(exists(in_storage("blocked.tcp/inside")));
    peer.send_file_data(content.substr(500));
    EXPECT_EQ(peer.finish_upload(), status_ok);
    expect_arrived("running");
}

// A path that just fits and one that just doesn't: never one that is cut.
TEST_F(UploadTest, TakesPathsUpToTheirLimitWhole) {
    const std::size_t room = 1023 - in_storage("").size();
    const std::string folders = std::string(200, 'a') + "/" + std::string(200, 'b') + "/" +
                                std::string(200, 'c') + "/" + std::string(200, 'd') + "/";
    for (std::size_t length = room - 8; length <= room + 2; ++length) {
        SCOPED_TRACE(length - room);
        const std::string path = folders + std::string(length - folders.size(), 'e');
        const message::Status status = peer.upload(announced(path), content);
        if (length <= room - 4) {
            EXPECT_EQ(status, status_ok);
        } else if (length > room) {
            EXPECT_EQ(status, message::status_open_write_failed);
        }
        EXPECT_EQ(exists(in_storage(path)), status == status_ok);
        std::filesystem::remove_all(in_storage(std::string(200, 'a')));
    }
}

struct FinishCase {
    const char* what;
    std::size_t sent;
    std::optional<Lying> appears;  // at the target, while the upload runs
    message::Status status;
};

TEST_F(UploadTest, ComparesAtTheFinishWhatCameWithWhatWasAnnounced) {
    const std::string twice = content + content;
    const FinishCase cases[] = {
        {"all of it", 1000, {}, status_ok},
        {"one byte short", 999, {}, message::status_file_incomplete},
        {"one byte too many", 1001, {}, message::status_file_overflow},
        {"the target came meanwhile, same size", 10, Lying{1000, 1}, status_ok},
        {"the target came meanwhile, other size", 1000, Lying{10, announced_time}, status_ok},
        {"nothing", 0, {}, message::status_file_incomplete},
    };
    int number = 0;
    for (const FinishCase& row : cases) {
        SCOPED_TRACE(row.what);
        const std::string name = std::to_string(number++);
        const std::string target = in_storage(name);
        ASSERT_EQ(peer.prepare(announced(name)), go_on_from(0));
        lay(target, row.appears);
        peer.send_file_data(twice.substr(0, row.sent), 300);
        EXPECT_EQ(peer.finish_upload(), row.status);
        EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);

        const std::string came = twice.substr(0, row.sent);
        const std::string compared = row.sent < 1000 ? " < " : " > ";
        if (row.status == status_ok) {
            expect_arrived(name);
            continue;
        }
        const std::string suffix = row.sent < 1000 ? ".incomplete" : ".overflow";
        EXPECT_EQ(support::read_file(target + suffix), came);
        EXPECT_FALSE(exists(target));
        EXPECT_FALSE(exists(target + ".tcp"));
        EXPECT_TRUE(logged(row.sent < 1000 ? "file is incomplete" : "file is overflow"));
        EXPECT_TRUE(recorded("remote upload file (" + target + ") failure, size unexpected: " +
                             std::to_string(row.sent) + compared + "1000"));
    }
    // What an earlier failure set aside gives way to the next one.
    ASSERT_EQ(peer.prepare(announced("1")), go_on_from(0));
    peer.send_file_data("other");
    EXPECT_EQ(peer.finish_upload(), message::status_file_incomplete);
    EXPECT_EQ(support::read_file(in_storage("1.incomplete")), "other");
}

TEST_F(UploadTest, KeepsTheDataWhenAFolderTookTheTargetsPlace) {
    ASSERT_EQ(peer.prepare(announced("n")), go_on_from(0));
    peer.send_file_data(content);
    ASSERT_EQ(peer.ask(request::create_directory("n")), status_ok);
    EXPECT_EQ(peer.finish_upload(), message::status_path_is_directory);
    EXPECT_TRUE(logged("path is a directory (" + in_storage("n") + ")"));
    EXPECT_EQ(server.root().record(), "");
    EXPECT_EQ(stored_file::time_of(in_storage("n.tcp")), announced_time);

    ASSERT_EQ(peer.ask(request::delete_path("n")), status_ok);
    EXPECT_EQ(peer.prepare(announced("n")), complete(1000));
    expect_arrived("n");
}

TEST_F(UploadTest, DataNeedsAnUploadAndEndsADownload) {
    EXPECT_EQ(peer.ask(request::upload_file_data("x")), message::status_invalid_connection_data);
    EXPECT_TRUE(logged("invalid connection data: get transmit event failed"));

    stored_file::put(in_storage("file"), content);
    ASSERT_EQ(peer.prepare(request::Download{.path = "file"}).status, status_ok);
    EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);
    EXPECT_TRUE(logged("invalid connection data: (download_file_event) != (upload_file_event)"));
    EXPECT_EQ(peer.stream_from(0).plain, content);

    EXPECT_EQ(peer.ask(request::upload_file_data("x")), message::status_invalid_connection_data);
    EXPECT_EQ(peer.finish_download(), message::status_invalid_connection_data);
}

TEST_F(UploadTest, AnswersWhereADownloadNeedsItself) {
    ASSERT_EQ(peer.prepare(announced("n")), go_on_from(0));
    peer.send_file_data(content.substr(0, 500));
    EXPECT_EQ(peer.finish_download(), message::status_invalid_connection_data);
    peer.send_file_data(content.substr(500));
    EXPECT_EQ(peer.stream_from(0).status, message::status_invalid_connection_data);
    EXPECT_TRUE(logged("invalid connection data: (upload_file_event) != (download_file_event)"));
    EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);
    EXPECT_EQ(peer.prepare(announced("n")), complete(1000));
}

TEST_F(UploadTest, TakesEncipheredBlocksOfAnyLength) {
    const std::string bytes = support::random_bytes(300000, 4);
    int number = 0;
    for (const std::size_t block : {std::size_t{1000}, std::size_t{65536}, bytes.size()}) {
        Upload upload = announced(std::to_string(number++), bytes.size());
        upload.encrypted = true;
        ASSERT_EQ(peer.prepare(upload), go_on_from(0));
        // A block that deciphers to nothing is legal and changes nothing.
        peer.send(request::upload_file_data(request::enciphered("")));
        peer.send_file_data(bytes, block, true);
        EXPECT_EQ(peer.finish_upload(), status_ok);
        expect_arrived(upload.path, bytes);
    }
}

TEST_F(UploadTest, EndsAtABlockThatCannotBeDeciphered) {
    Upload upload = announced("n");
    upload.encrypted = true;
    for (const std::string& bad :
         {std::string(15, 'x'), std::string(32, 'x'), std::string(17, 'x')}) {
        ASSERT_EQ(peer.prepare(upload).status, message::status_file_incomplete);
        EXPECT_EQ(peer.ask(request::upload_file_data(bad)), message::status_decrypt_failed);
        EXPECT_TRUE(logged("decrypt data failed (" + in_storage("n") + ")"));
        EXPECT_EQ(peer.ask(request::upload_file_data(bad)),
                  message::status_invalid_connection_data);
        EXPECT_EQ(stored_file::time_of(in_storage("n.tcp")), announced_time);
    }
    EXPECT_EQ(peer.upload(upload, content), status_ok);
    expect_arrived("n");
}

TEST_F(UploadTest, LetsOneOfTwoClientsHaveATarget) {
    Peer second(server.transmit_port());
    ASSERT_EQ(peer.prepare(announced("n")), go_on_from(0));
    peer.send_file_data(content.substr(0, 500));
    // Each of these would, for a name that is free, throw the temporary file away.
    EXPECT_EQ(second.prepare(announced("n")).status, message::status_file_in_use);
    EXPECT_EQ(second.prepare(announced("n", 10)).status, message::status_file_in_use);
    EXPECT_EQ(second.prepare(announced("n", 1000, 6000)).status, message::status_file_in_use);
    EXPECT_EQ(second.prepare(announced("n.tcp")).status, message::status_file_in_use);
    EXPECT_EQ(second.prepare(announced("./x/../n")).status, message::status_file_in_use);
    EXPECT_EQ(second.upload(announced("other"), content), status_ok);

    // The other client's own file stands there complete: nothing is left to do for it, and the
    // temporary file isn't its to delete.
    stored_file::put(in_storage("n"), "mine", 70);
    EXPECT_EQ(second.prepare(announced("n", 4, 70)), complete(4));

    peer.send_file_data(content.substr(500));
    EXPECT_EQ(peer.finish_upload(), status_ok);
    expect_arrived("n");
    EXPECT_EQ(second.upload(announced("n", 4), "next"), status_ok);
    expect_arrived("n", "next");
}

TEST_F(UploadTest, HoldsATargetAgainstAnUploadThatWouldUseItAsTemporaryFile) {
    Peer second(server.transmit_port());
    ASSERT_EQ(peer.prepare(announced("n.tcp")), go_on_from(0));
    EXPECT_EQ(second.prepare(announced("n")).status, message::status_file_in_use);
    peer.send_file_data(content);
    EXPECT_EQ(peer.finish_upload(), status_ok);
    EXPECT_EQ(support::read_file(in_storage("n.tcp")), content);
}

TEST_F(UploadTest, FreesATargetWithTheConnection) {
    {
        Peer first(server.transmit_port());
        ASSERT_EQ(first.prepare(announced("n")), go_on_from(0));
        first.send_file_data(content.substr(0, 300));
        ASSERT_EQ(first.ask(request::check_storage_id(1)), status_ok);
    }
    ASSERT_TRUE(await([&] { return peer.node_count() == 1; }));
    EXPECT_EQ(stored_file::time_of(in_storage("n.tcp")), announced_time);
    EXPECT_EQ(server.root().record(), "");
    EXPECT_EQ(peer.prepare(announced("n")), go_on_from(300));
}

// Of all that prepare one target at once, one gets it, whatever the others do to win it.
TEST_F(UploadTest, LetsExactlyOneOfManyClientsThrough) {
    constexpr int rounds = 20;
    constexpr std::size_t client_count = 6;
    std::vector<std::unique_ptr<Peer>> clients;
    for (std::size_t client = 0; client < client_count; ++client) {
        clients.push_back(std::make_unique<Peer>(server.transmit_port()));
    }
    for (int round = 0; round < rounds; ++round) {
        lay(in_storage("n"), Lying{5, 1});
        lay(in_storage("n.tcp"), Lying{9, 2});
        std::vector<UploadPrepared> answers(client_count);
        std::vector<std::thread> threads;
        for (std::size_t client = 0; client < client_count; ++client) {
            threads.emplace_back([&, client] {
                answers[client] = clients[client]->prepare(
                    announced("n", 1000, 100 + static_cast<std::int64_t>(client)));
                if (answers[client] == go_on_from(0)) {
                    clients[client]->send_file_data(content, 10);
                }
            });
        }
        std::size_t winner = client_count;
        for (std::size_t client = 0; client < client_count; ++client) {
            threads[client].join();
            if (answers[client] == go_on_from(0)) {
                EXPECT_EQ(winner, client_count);
                winner = client;
            } else {
                EXPECT_EQ(answers[client].status, message::status_file_in_use);
            }
        }
        ASSERT_NE(winner, client_count);
        EXPECT_EQ(clients[winner]->finish_upload(), status_ok);
        EXPECT_EQ(support::read_file(in_storage("n")), content);
        EXPECT_EQ(stored_file::time_of(in_storage("n")), 100 + static_cast<std::int64_t>(winner));
    }
}

support::ServerSettings with_suffix(const std::string& suffix) {
    support::ServerSettings settings;
    settings.temp_file_suffix = suffix;
    return settings;
}

// A limit on the length of files stands in for a full disk.
TEST(UploadFullDiskTest, EndsAtABlockThatCannotBeWritten) {
    support::RunningServer server;
    const std::string temporary = server.storage_folder() + "n.tcp";
    Peer peer(server.transmit_port());
    const std::string bytes = support::random_bytes(600000, 9);
    const Upload upload{.path = "n", .size = std::ssize(bytes), .time = announced_time};
    const rlimit full{500000, RLIM_INFINITY};
    ASSERT_EQ(prlimit(server.pid(), RLIMIT_FSIZE, &full, nullptr), 0);

    ASSERT_EQ(peer.prepare(upload), go_on_from(0));
    peer.send_file_data(bytes, 200000);
    peer.send(request::upload_file_finish());
    EXPECT_EQ(peer.receive<message::UploadFileData>().status, message::status_write_failed);
    EXPECT_EQ(peer.receive<message::UploadFileFinish>().status,
              message::status_invalid_connection_data);
    EXPECT_NE(server.root().run_log().find("write file failed ("), std::string::npos);
    EXPECT_EQ(stored_file::time_of(temporary), announced_time);

    const rlimit space{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(prlimit(server.pid(), RLIMIT_FSIZE, &space, nullptr), 0);
    EXPECT_EQ(peer.upload(upload, bytes), status_ok);
    EXPECT_TRUE(support::read_file(server.storage_folder() + "n") == bytes);
}

// With the temporary files on another file system than their targets every rename fails.
TEST(UploadSuffixTest, FailedRenamesLeaveTheDataToAnotherAttempt) {
    std::string memory = "/dev/shm/transmit-XXXXXX";
    if (mkdtemp(memory.data()) == nullptr) {
        GTEST_SKIP() << "no second file system at /dev/shm";
    }
    support::RunningServer server(with_suffix(".d/part"));
    const std::string target = server.storage_folder() + "n";
    std::filesystem::create_directory_symlink(memory, target + ".d");
    const std::string temporary = memory + "/part";
    Peer peer(server.transmit_port());
    const Upload upload{.path = "n", .size = 1000, .time = announced_time};

    EXPECT_EQ(peer.upload(upload, content), message::status_rename_failed);
    EXPECT_EQ(support::read_file(temporary), content);
    EXPECT_EQ(stored_file::time_of(temporary), announced_time);
    EXPECT_EQ(peer.prepare(upload), (UploadPrepared{message::status_rename_failed, 1000}));
    EXPECT_NE(server.root().run_log().find("rename file failed (" + target + ".d/part) -> (" +
                                           target + ")"),
              std::string::npos);

    std::filesystem::remove(temporary);
    EXPECT_EQ(peer.upload(upload, content.substr(1)), message::status_file_incomplete);
    EXPECT_EQ(stored_file::time_of(temporary), 0);
    EXPECT_EQ(peer.upload(upload, content + "x"), message::status_file_overflow);
    EXPECT_EQ(stored_file::time_of(temporary), 0);
    std::filesystem::remove_all(memory);
}

// Others rename, replace and add to files behind the server's back.
TEST_F(UploadTest, AFinishInstallsOnlyTheFileThatItWrote) {
    const std::string temporary = in_storage("n.tcp");
    const std::pair<const char*, std::function<void()>> disturbances[] = {
        {"gone",
         [&] {
             std::filesystem::remove(temporary);
         }},
        {"another file",
         [&] {
             std::filesystem::rename(temporary, in_storage("moved"));
             stored_file::put(temporary, std::string(content.size(), 'x'));
         }},
        {"longer",
         [&] {
             stored_file::put(temporary, content + "more");
         }},
    };
    for (const auto& [what, disturb] : disturbances) {
        SCOPED_TRACE(what);
        std::filesystem::remove(temporary);
        ASSERT_EQ(peer.prepare(announced("n")), go_on_from(0));
        peer.send_file_data(content);
        ASSERT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
        disturb();
        stored_file::put(in_storage("n"), "somebody's");
        const std::string there = support::read_file(temporary);
        EXPECT_EQ(peer.finish_upload(), message::status_rename_failed);
        EXPECT_EQ(support::read_file(in_storage("n")), "somebody's");
        EXPECT_EQ(support::read_file(temporary), there);
        EXPECT_FALSE(recorded("success"));
    }
}

TEST_F(UploadTest, AnotherNameOfARunningUploadIsInUse) {
    Peer second(server.transmit_port());
    ASSERT_EQ(peer.prepare(announced("d/n")), go_on_from(0));
    peer.send_file_data(content.substr(0, 500));
    ASSERT_EQ(second.ask(request::rename_path("d", "e")), status_ok);
    for (const Upload& upload : {announced("e/n"), announced("e/n", 10), announced("e/n", 9, 9)}) {
        EXPECT_EQ(second.prepare(upload).status, message::status_file_in_use);
    }
    // The old name is free, and a file that comes there isn't the first client's.
    ASSERT_EQ(second.ask(request::create_directory("d")), status_ok);
    stored_file::put(in_storage("d/n.tcp"), "strange", 7);
    peer.send_file_data(content.substr(500));
    EXPECT_EQ(peer.finish_upload(), message::status_rename_failed);
    EXPECT_EQ(support::read_file(in_storage("d/n.tcp")), "strange");
    EXPECT_EQ(stored_file::time_of(in_storage("d/n.tcp")), 7);
    EXPECT_EQ(second.prepare(announced("e/n")), complete(1000));
    EXPECT_EQ(support::read_file(in_storage("e/n")), content);
}

TEST_F(UploadTest, OnlyARegularFileCounts) {
    const auto pipe = [&](const std::string& name) {
        ASSERT_EQ(::mkfifo(in_storage(name).c_str(), 0600), 0);
        const std::array<timespec, 2> times{timespec{}, timespec{announced_time, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, in_storage(name).c_str(), times.data(), 0), 0);
    };
    pipe("target");
    EXPECT_EQ(peer.upload(announced("target", 0), ""), status_ok);
    expect_arrived("target", "");
    pipe("temporary.tcp");
    ASSERT_EQ(peer.prepare(announced("temporary", 0)), go_on_from(0));
    EXPECT_EQ(peer.finish_upload(), status_ok);
    expect_arrived("temporary", "");
    std::filesystem::create_symlink(in_storage("target"), in_storage("link.tcp"));
    EXPECT_EQ(peer.upload(announced("link"), content), status_ok);
    expect_arrived("link");
    EXPECT_EQ(support::read_file(in_storage("target")), "");
    // A stat that fails for another reason than absence: nothing is known, nothing is touched.
    std::filesystem::create_symlink(in_storage("circle"), in_storage("circle"));
    EXPECT_EQ(peer.prepare(announced("circle/n")).status, message::status_open_write_failed);
    EXPECT_EQ(peer.ask(request::delete_path("circle/n")), message::status_delete_failed);
    EXPECT_EQ(peer.ask(request::rename_path("link", "circle/n")), message::status_rename_failed);
    EXPECT_TRUE(exists(in_storage("link")));
}

support::ServerSettings with_checkpoints(bool wanted) {
    support::ServerSettings settings;
    settings.further = wanted ? "<durable_upload>true</durable_upload>"
                                "<checkpoint_mib>1</checkpoint_mib>"
                              : "";
    return settings;
}

class CheckpointTest : public UploadTest, public testing::WithParamInterface<bool> {
  protected:
    CheckpointTest() : UploadTest(with_checkpoints(GetParam())) {}
};

TEST_P(CheckpointTest, AKillCostsNoMoreThanOneOfThem) {
    constexpr std::size_t sent = 7 << 19;
    const std::string bytes = support::random_bytes(5 << 20, 3);
    const Upload upload = announced("new/folder/n", bytes.size());
    auto client = std::make_unique<Peer>(server.transmit_port());
    const auto kill_after = [&](std::int64_t from, std::size_t to) {
        client->send_file_data(
            bytes.substr(static_cast<std::size_t>(from), to - static_cast<std::size_t>(from)));
        EXPECT_EQ(client->ask(request::check_storage_id(1)), status_ok);
        EXPECT_EQ(server.stop_by(SIGKILL), support::ended_by(SIGKILL));
        server.start();
        client = std::make_unique<Peer>(server.transmit_port());
        return client->prepare(upload);
    };
    ASSERT_EQ(client->prepare(upload), go_on_from(0));
    UploadPrepared prepared = kill_after(0, sent);
    EXPECT_EQ(prepared.status, message::status_file_incomplete);
    if (GetParam()) {
        EXPECT_GE(prepared.offset, static_cast<std::int64_t>(sent) - (2 << 20));
        // What was there when the upload went on isn't lost either.
        prepared = kill_after(prepared.offset, sent);
        EXPECT_GE(prepared.offset, static_cast<std::int64_t>(sent) - (2 << 20));
    } else {
        EXPECT_EQ(prepared.offset, 0);
    }
    client->send_file_data(bytes.substr(static_cast<std::size_t>(prepared.offset)));
    EXPECT_EQ(client->finish_upload(), status_ok);
    expect_arrived("new/folder/n", bytes);
    EXPECT_EQ(::listxattr(in_storage("new/folder/n").c_str(), nullptr, 0), 0);
}

INSTANTIATE_TEST_SUITE_P(BothWays, CheckpointTest, testing::Bool());

}  // namespace
