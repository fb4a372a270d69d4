#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// The system at its limits: a full disk, no descriptor left, logs that can't be written. The server
// goes on with whatever doesn't need what lacks, and with all of it when there is some again.
namespace {

using measure::measured;
using measure::mebibyte;
using measure::since;
using message::status_ok;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t block_size = 65536;

// A small disk that is seen by this process and by those that it starts from now on, and that goes
// with the last of them.
class SmallDisk {
  public:
    SmallDisk() {
        can_mount_ = unshare(CLONE_NEWNS) == 0 &&
                     ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }

    // False if the system lets nobody mount.
    bool mount(const std::string& folder, const char* size) {
        folder_ = folder;
        return can_mount_ && ::mount("tmpfs", folder.c_str(), "tmpfs", 0, size) == 0;
    }
    void resize(const char* size) const { remount(0, size); }
    void forbid_writing() const { remount(MS_RDONLY, nullptr); }
    void unmount() { EXPECT_EQ(umount2(folder_.c_str(), MNT_DETACH), 0); }

  private:
    void remount(unsigned long flags, const char* size) const {
        EXPECT_EQ(::mount("tmpfs", folder_.c_str(), "tmpfs", MS_REMOUNT | flags, size), 0);
    }

    bool can_mount_ = false;
    std::string folder_;
};

// A server beside a disk that isn't mounted yet.
class DiskTrial : public testing::Test {
  protected:
    explicit DiskTrial(const support::ServerSettings& settings = {}) : server(settings) {}

    void TearDown() override { EXPECT_EQ(server.stop(), support::exited_with(0)); }

    SmallDisk disk;
    support::RunningServer server;
    Peer peer{server.transmit_port()};
};

support::ServerSettings two_storages() {
    support::ServerSettings settings;
    settings.storages = {{.id = 1, .name = "Small", .directory = "storage/small"},
                         {.id = 2, .name = "Large", .directory = "storage/large"}};
    return settings;
}

class FullDiskTrial : public DiskTrial {
  protected:
    FullDiskTrial() : DiskTrial(two_storages()) {}

    std::string in_storage(const std::string& name) const { return server.storage_folder() + name; }
};

TEST_F(FullDiskTrial, OneUploadEndsAndGoesOnWhenThereIsRoom) {
    constexpr std::size_t capacity = 4 * mebibyte;
    if (!disk.mount(in_storage(""), "size=4m")) {
        GTEST_SKIP() << "this system lets nobody mount a disk";
    }
    const std::string bytes = support::random_bytes(2 * capacity, 1);
    const request::Upload large{.path = "large", .size = std::ssize(bytes), .time = 5000};
    request::Upload elsewhere = large;
    elsewhere.storage_id = 2;
    Peer other(server.transmit_port());
    ASSERT_EQ(other.prepare(elsewhere).status, message::status_file_incomplete);
    other.send_file_data(bytes.substr(0, capacity));

    ASSERT_EQ(peer.prepare(large).status, message::status_file_incomplete);
    peer.send_file_data(bytes.substr(0, capacity));
    ASSERT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
    EXPECT_EQ(peer.ask(request::upload_file_data(bytes.substr(capacity, block_size))),
              message::status_write_failed);
    EXPECT_EQ(peer.finish_upload(), message::status_invalid_connection_data);
    EXPECT_EQ(std::filesystem::file_size(in_storage("large.tcp")), capacity);
    EXPECT_EQ(stored_file::time_of(in_storage("large.tcp")), 5000);

    other.send_file_data(bytes.substr(capacity));
    EXPECT_EQ(other.finish_upload(), status_ok);
    elsewhere.path = "another";
    EXPECT_EQ(peer.upload(elsewhere, bytes), status_ok);

    disk.resize("size=16m");
    EXPECT_EQ(peer.prepare(large), (UploadPrepared{message::status_file_incomplete, capacity}));
    peer.send_file_data(bytes.substr(capacity));
    EXPECT_EQ(peer.finish_upload(), status_ok);
    EXPECT_TRUE(support::read_file(in_storage("large")) == bytes);
}

class LogFolderTrial : public DiskTrial {
  protected:
    std::string log_folder() const { return server.root().path() + "log"; }

    // Requests that write to the run log, the debug log and the record.
    void expect_service(const char* meanwhile) {
        SCOPED_TRACE(meanwhile);
        const auto start = steady_clock::now();
        for (int i = 0; i < 20; ++i) {
            Peer client(server.transmit_port());
            EXPECT_EQ(client.ask(request::check_storage_id(99)),
                      message::status_invalid_storage_id);
            const request::Upload upload{.path = "f", .size = 5, .time = 1000 + i};
            EXPECT_EQ(client.upload(upload, "bytes"), status_ok);
        }
        measured() << "log folder " << meanwhile << ": 20 clients served in "
                   << since(start).count() << " ms\n";
    }
};

TEST_F(LogFolderTrial, NothingOfItStopsTheServer) {
    if (!disk.mount(log_folder(), "size=64k")) {
        GTEST_SKIP() << "this system lets nobody mount a disk";
    }
    support::write_file(log_folder() + "/filler", "");
    std::error_code full;
    for (std::string rest = std::string(65536, 'x'); !rest.empty(); rest.resize(rest.size() / 2)) {
        const int file = open((log_folder() + "/filler").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        static_cast<void>(write(file, rest.data(), rest.size()));
        close(file);
    }
    expect_service("full");
    disk.forbid_writing();
    expect_service("read-only");
    disk.unmount();
    std::filesystem::remove_all(log_folder());
    support::write_file(log_folder(), "in its place");
    expect_service("gone, a file in its place");
}

class DescriptorTrial : public ServerTest {
  protected:
    static constexpr rlim_t limit = 64;

    void SetUp() override {
        const rlimit few{limit, limit};
        ASSERT_EQ(prlimit(server.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    }

    bool has_logged(const char* text) const {
        return server.root().run_log().find(text) != std::string::npos;
    }

    // The clients whose answers have come; waits for at least one.
    static std::vector<std::size_t> answered(const std::vector<std::unique_ptr<Peer>>& clients) {
        std::vector<pollfd> waits;
        for (const auto& client : clients) {
            const int socket = client != nullptr ? client->socket().descriptor() : -1;
            waits.push_back({socket, POLLIN, 0});
        }
        poll(waits.data(), waits.size(), 30'000);
        std::vector<std::size_t> ready;
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if (waits[i].revents != 0) {
                ready.push_back(i);
            }
        }
        return ready;
    }
};

TEST_F(DescriptorTrial, ClientsBeyondTheLimitWaitAtNoCost) {
    std::vector<std::unique_ptr<Peer>> clients(200);
    for (auto& client : clients) {
        client = std::make_unique<Peer>(server.transmit_port());
        client->send(request::check_storage_id(1));
    }
    ASSERT_TRUE(await([&] { return has_logged("accepts no more connections for now"); }));
    // Those that are connected find descriptors for their files, and the other port has its own.
    EXPECT_EQ(peer.upload(request::Upload{.path = "f", .size = 5}, "bytes"), status_ok);
    EXPECT_EQ(HttpPeer(server.command_port()).get("/sys/transmit_statistics").status, "200 OK");

    const auto full_since = steady_clock::now();
    const auto processor_before = server.process().processor_time();
    // Waiting is no event: this is the time over which its cost is counted.
    std::this_thread::sleep_for(milliseconds(2000));
    const milliseconds watched = since(full_since);
    const auto processor = server.process().processor_time() - processor_before;

    const std::vector<std::size_t> first = answered(clients);
    std::size_t served = first.size();
    for (const std::size_t client : first) {
        clients[client].reset();
    }
    const auto start = steady_clock::now();
    ASSERT_FALSE(answered(clients).empty());
    measured() << "at the limit of " << limit << " descriptors: " << served << " of "
               << clients.size() << " clients served, " << processor.count()
               << " ms of processor time in " << watched.count()
               << " ms; the next one served after " << since(start).count() << " ms\n";
    EXPECT_LE(processor, watched / 4);
    while (served < clients.size()) {
        const auto ready = answered(clients);
        ASSERT_FALSE(ready.empty());
        served += ready.size();
        for (const std::size_t client : ready) {
            clients[client].reset();
        }
    }
}

}  // namespace
