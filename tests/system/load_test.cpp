#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/batch.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/system/measure.h"
#include "tests/system/process_figures.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// The server under load. The bounds asserted here are those that hold on any machine, however
// busy; what was measured is printed beside them.
namespace {

using namespace measure;  // NOLINT(google-build-using-namespace): sizes, times and their output
using message::status_ok;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A sanitizer's own memory and work come on top of the program's.
constexpr std::uint64_t allowance = std::string_view(TRANSMIT_SANITIZE).empty() ? 1 : 10;

using LoadTest = ServerTest;

// Lets this process and the server have that many descriptors more. False if the system forbids it.
bool allow_descriptors(pid_t server, rlim_t wanted) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < wanted + 100) {
        return false;
    }
    limit.rlim_cur = limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0 &&
           prlimit(server, RLIMIT_NOFILE, &limit, nullptr) == 0;
}

TEST_F(LoadTest, MovesTheFilesOfTwoHundredClientsAtOnce) {
    constexpr int client_count = 200;
    const auto bytes_of = [](int client) {
        const auto seed = static_cast<std::uint64_t>(client);
        return support::random_bytes(200000 + seed * 1000, seed);
    };
    std::vector<std::thread> clients;
    for (int client = 0; client < client_count; ++client) {
        clients.emplace_back([&, client] {
            const std::string name = std::to_string(client);
            const std::string bytes = bytes_of(client);
            const bool encrypted = client % 4 >= 2;
            Peer own(server.transmit_port());
            if (client % 2 == 0) {
                EXPECT_EQ(
                    own.upload({.path = name, .size = std::ssize(bytes), .encrypted = encrypted},
                               bytes),
                    status_ok);
                EXPECT_TRUE(support::read_file(in_storage(name)) == bytes);
            } else {
                stored_file::put(in_storage(name), bytes);
                EXPECT_EQ(own.prepare(request::Download{.path = name, .encrypted = encrypted}).size,
                          std::ssize(bytes));
                EXPECT_TRUE(own.stream_from(0, encrypted).plain == bytes);
                EXPECT_EQ(own.finish_download(), status_ok);
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
}

TEST_F(LoadTest, CarriesIdleConnectionsAlmostForNothing) {
    const std::size_t count = sized<std::size_t>(1000, 10000);
    if (!allow_descriptors(server.pid(), count)) {
        GTEST_SKIP() << "the limit of descriptors is too low for " << count << " connections";
    }
    const std::uint64_t memory_before = memory();
    std::vector<std::unique_ptr<Peer>> idle;
    for (std::size_t i = 0; i < count; ++i) {
        idle.push_back(std::make_unique<Peer>(server.transmit_port()));
        ASSERT_EQ(idle.back()->ask(request::check_storage_id(1)), status_ok);
    }
    const std::uint64_t memory_each = (memory() - memory_before) / count;
    const auto processor_before = server.process().processor_time();
    // Idleness is no event: this is the time over which its cost is counted.
    constexpr milliseconds watched{2000};
    std::this_thread::sleep_for(watched);
    const auto processor = server.process().processor_time() - processor_before;

    measured() << count << " idle connections: " << memory_each << " bytes each, "
               << processor.count() << " ms of processor time in " << watched.count() << " ms\n";
    EXPECT_LE(memory_each, 24 * kibibyte * allowance);
    EXPECT_LE(processor, watched / 10 * allowance);
    EXPECT_EQ(idle.front()->ask(request::check_storage_id(1)), status_ok);
    EXPECT_EQ(peer.node_count(), (count + 1) % 65536);
}

TEST_F(LoadTest, GivesBackAllThatASessionTook) {
    const std::size_t count = sized<std::size_t>(2000, 20000);
    const auto run_sessions = [&](std::size_t sessions) {
        for (std::size_t i = 0; i < sessions; ++i) {
            Peer session(server.transmit_port());
            ASSERT_EQ(session.ask(request::check_storage_id(1)), status_ok);
            if (i % 2 == 1) {
                session.socket().reset();
            }
        }
        ASSERT_TRUE(await([&] { return peer.node_count() == 1; }));
    };
    run_sessions(count / 4);
    const std::size_t descriptors_before = descriptors();
    const std::uint64_t memory_before = memory();
    const auto start = steady_clock::now();
    run_sessions(count);
    measured() << count << " sessions in " << since(start).count() << " ms, memory grew by "
               << static_cast<std::int64_t>(memory() - memory_before) << " bytes\n";
    // The last session before may still have been closing when they were counted.
    EXPECT_TRUE(await([&] { return descriptors() <= descriptors_before; }));
    EXPECT_LE(memory(), memory_before + 2 * mebibyte * allowance);
}

// The longest of many answers to a small request.
milliseconds longest_answer(Peer& peer, int asked) {
    milliseconds longest{0};
    for (int i = 0; i < asked; ++i) {
        const auto start = steady_clock::now();
        EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
        longest = std::max(longest, since(start));
    }
    return longest;
}

TEST_F(LoadTest, BoundsWhatAPeerThatNeverReadsCanTake) {
    constexpr int requests = 100000;
    const std::uint64_t memory_before = memory();
    Peer greedy(server.transmit_port());
    std::string all;
    for (int i = 0; i < requests; ++i) {
        all += request::test_download_data(65535);
    }
    greedy.send(all);
    const milliseconds longest = longest_answer(peer, 2000);
    const std::uint64_t taken = process_figures::peak_resident_memory(server.pid()) - memory_before;
    measured() << requests << " unread answers take " << taken / kibibyte
               << " KiB; another client's longest answer took " << longest.count() << " ms\n";
    EXPECT_LE(taken, 16 * mebibyte * allowance);

    // None is lost: as the peer reads, its answers come, to the last.
    for (int i = 0; i < sized(2000, requests); ++i) {
        const auto response = greedy.receive<message::TestDownloadData>();
        ASSERT_EQ(response.data_length, 65535);
        greedy.receive_bytes(65535);
    }
}

bool has_bytes(Peer& peer) {
    pollfd wait{peer.socket().descriptor(), POLLIN, 0};
    return poll(&wait, 1, 0) > 0;
}

TEST_F(LoadTest, AnswersOthersWhileALongListingIsMade) {
    const int count = sized(30000, 100000);
    std::filesystem::create_directories(in_storage("full"));
    for (int i = 0; i < count; ++i) {
        close(open(in_storage("full/file number " + std::to_string(i)).c_str(), O_CREAT | O_WRONLY,
                   0600));
    }
    Peer lister(server.transmit_port());
    const auto start = steady_clock::now();
    lister.send(request::get_path_content("full"));
    int answered = 0;
    milliseconds longest{0};
    while (!has_bytes(lister)) {
        longest = std::max(longest, longest_answer(peer, 1));
        answered += has_bytes(lister) ? 0 : 1;
    }
    const milliseconds listed = since(start);
    const auto response = lister.receive<message::GetPathContent>();
    EXPECT_EQ(response.status, message::status_path_is_directory);
    lister.receive_bytes(response.data_length);
    measured() << count << " entries listed in " << listed.count() << " ms; meanwhile " << answered
               << " answers to another client, the longest in " << longest.count() << " ms\n";
    EXPECT_GT(answered, 0);
}

// A file of that size whose bytes differ from block to block, made in constant memory.
void make_large_file(const std::string& path, std::uint64_t size, std::int64_t time) {
    std::string block = support::random_bytes(mebibyte, size);
    std::ofstream file(path, std::ios::binary);
    for (std::uint64_t at = 0; at < size; at += block.size()) {
        block.replace(0, sizeof at, reinterpret_cast<const char*>(&at), sizeof at);
        file.write(block.data(), static_cast<std::streamsize>(std::min(size - at, mebibyte)));
    }
    file.close();
    const std::array<timespec, 2> times{timespec{time, 0}, timespec{time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
}

TEST_F(LoadTest, CarriesALargeFileThereAndBackInLittleMemory) {
    const std::uint64_t size = sized(64 * mebibyte, 2048 * mebibyte) + 12345;
    constexpr std::int64_t time = 1111111111;
    const support::TemporaryFolder folder;
    const std::string local = folder.path() + "local";
    const std::string back = folder.path() + "back";
    make_large_file(local, size, time);
    const std::string sum = support::sha256_of_file(local);
    const transmit::Server target{
        .endpoint = {.port = server.transmit_port()}, .limits = {}, .retry = {}};
    transmit::TransferObserver unwatched;
    transmit::UploadBatch up;
    up.files.push_back({local, {.path = "large"}, {}});
    transmit::DownloadBatch down;
    down.files.push_back({{.path = "large"}, back, {}, {}});
    for (const bool encrypted : {false, true}) {
        const auto start = steady_clock::now();
        transmit::TransferOptions options;
        options.encrypted = encrypted;
        ASSERT_TRUE(transmit::upload_files(target, up, options, unwatched).complete());
        const milliseconds up_time = since(start);
        EXPECT_EQ(support::sha256_of_file(in_storage("large")), sum);
        EXPECT_EQ(stored_file::time_of(in_storage("large")), time);

        const auto middle = steady_clock::now();
        ASSERT_TRUE(transmit::download_files(target, down, options, unwatched).complete());
        measured() << size / mebibyte << " MiB " << (encrypted ? "encrypted" : "plain") << ": up "
                   << up_time.count() << " ms, down " << since(middle).count() << " ms\n";
        EXPECT_EQ(support::sha256_of_file(back), sum);
        EXPECT_EQ(stored_file::time_of(back), time);
        std::filesystem::remove(in_storage("large"));
        std::filesystem::remove(back);
    }
    const std::uint64_t peak = process_figures::peak_resident_memory(server.pid());
    measured() << "the server's memory at its highest: " << peak / mebibyte << " MiB\n";
    EXPECT_LE(peak, 100 * mebibyte * allowance);
}

}  // namespace
