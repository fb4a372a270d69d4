#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// Clients that ask and never read, or open and never ask. Each kind meets a bound of its own;
// others are answered meanwhile, and when it has gone the server holds what it held before.
namespace {

using namespace measure;  // NOLINT(google-build-using-namespace): sizes, times and their output
using message::status_ok;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What the server keeps of a crowd that has gone: idle blocks and buffers of its threads
// (BufferMemory, PayloadBuffers), nodes in their pool, and what the allocator leaves unused.
constexpr std::uint64_t kept_memory = 24 * mebibyte;

class MemoryTrial : public ServerTest {
  protected:
    using Crowd = std::vector<std::shared_ptr<void>>;

    MemoryTrial() {
        support::write_file(page_path("page.bin"), support::random_bytes(256 * kibibyte, 1));
        stored_file::put(in_storage("long"), std::string(100 * mebibyte, 'x'));
        EXPECT_EQ(peer.node_count(), 1);
        const std::size_t descriptors_at_rest = descriptors();
        run_sessions(200);
        EXPECT_TRUE(await([&] { return descriptors() <= descriptors_at_rest; }));
    }

    // Has the crowd made, looks at the server while it stands, and again when it has gone.
    void weigh(const char* what, std::uint64_t bound, const std::function<Crowd()>& gather) {
        SCOPED_TRACE(what);
        const std::uint64_t memory_before = memory();
        const std::size_t descriptors_before = descriptors();
        Crowd crowd = gather();
        const milliseconds longest = longest_answer();
        const std::uint64_t taken = growth_since(memory_before);
        crowd.clear();
        EXPECT_TRUE(await([&] { return peer.node_count() == 1; }));
        EXPECT_TRUE(await([&] { return descriptors() <= descriptors_before; }));
        const std::uint64_t left = growth_since(memory_before);
        measured() << what << ": " << taken / mebibyte << " MiB, " << left / mebibyte
                   << " MiB afterwards; another client's longest answer took " << longest.count()
                   << " ms\n";
        EXPECT_LE(taken, bound + kept_memory);
        EXPECT_LE(left, kept_memory);
    }

    std::uint64_t growth_since(std::uint64_t memory_before) {
        const std::uint64_t now = memory();
        return now - std::min(now, memory_before);
    }

    // The longest of many answers to another client's requests, on both ports.
    milliseconds longest_answer() {
        milliseconds longest{0};
        HttpPeer browser(server.command_port());
        for (int i = 0; i < 300; ++i) {
            const auto start = steady_clock::now();
            EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
            EXPECT_EQ(browser.get("/none").status, "404 Not Found");
            longest = std::max(longest, since(start));
        }
        return longest;
    }

    void run_sessions(int count) {
        for (int i = 0; i < count; ++i) {
            Peer session(server.transmit_port());
            EXPECT_EQ(session.ask(request::check_storage_id(1)), status_ok);
        }
    }

    std::shared_ptr<Peer> connect() { return std::make_shared<Peer>(server.transmit_port()); }
    std::string page_path(const std::string& name) const {
        return server.root().path() + "www/" + name;
    }
};

TEST_F(MemoryTrial, CrowdsThatNeverRead) {
    weigh("downloads at the highest speed", 1024 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(4, 60); ++i) {
            const auto lazy = connect();
            EXPECT_EQ(lazy->ask(request::set_transmit_speed(4294967295)), status_ok);
            EXPECT_EQ(lazy->prepare(request::Download{.path = "long"}).status, status_ok);
            lazy->send(request::download_file_data(0));
            crowd.push_back(lazy);
        }
        return crowd;
    });
    weigh("100,000 pipelined requests", mebibyte, [&] {
        std::string all;
        for (int i = 0; i < 100000; ++i) {
            all += request::test_download_data(65535);
        }
        const auto greedy = connect();
        greedy->send(all);
        return Crowd{greedy};
    });
    weigh("3,000 requests for a page of 256 KiB", 2 * mebibyte, [&] {
        const auto greedy = std::make_shared<HttpPeer>(server.command_port());
        for (int i = 0; i < 3000; ++i) {
            greedy->send(get_request("/page.bin"));
        }
        return Crowd{greedy};
    });
    weigh("unread listings of a large folder", 1024 * mebibyte, [&] {
        for (int i = 0; i < sized(1000, 20000); ++i) {
            stored_file::put(in_storage("full/file number " + std::to_string(i)), "");
        }
        Crowd crowd;
        for (int i = 0; i < sized(6, 60); ++i) {
            const auto greedy = connect();
            greedy->send(request::get_path_content("full"));
            crowd.push_back(greedy);
        }
        return crowd;
    });
    weigh("unread pages of 20 MiB", 1024 * mebibyte, [&] {
        support::write_file(page_path("large.bin"), std::string(20 * mebibyte, 'y'));
        Crowd crowd;
        for (int i = 0; i < sized(6, 60); ++i) {
            const auto greedy = std::make_shared<HttpPeer>(server.command_port());
            greedy->send(get_request("/large.bin"));
            crowd.push_back(greedy);
        }
        return crowd;
    });
}

TEST_F(MemoryTrial, FramesThatNeverEnd) {
    weigh("announced frames of 4 GiB - 1, 70 MiB of each sent", 1024 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(2, 20); ++i) {
            const auto endless = connect();
            endless->send(std::string("\0\x02\0\0\xff\xff\xff\xff", 8));
            // The server ends the connection somewhere in it.
            endless->socket().send(std::string(70 * mebibyte, 'x'));
            crowd.push_back(endless);
        }
        return crowd;
    });
    weigh("frames that wait at 60 MiB", 1024 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(4, 100); ++i) {
            const auto waiting = connect();
            waiting->send(std::string("\0\x02\0\0\x03\xff\xff\xff", 8));
            waiting->socket().send(std::string(60 * mebibyte, 'x'));
            crowd.push_back(waiting);
        }
        return crowd;
    });
}

TEST_F(MemoryTrial, CrowdsThatOnlyConnect) {
    weigh("idle connections", 2000UL * 24 * kibibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(300, 2000); ++i) {
            const auto idle = connect();
            EXPECT_EQ(idle->ask(request::check_storage_id(1)), status_ok);
            crowd.push_back(idle);
        }
        return crowd;
    });
    weigh("connect and close", 0, [&] {
        for (int i = 0; i < sized(500, 5000); ++i) {
            const support::RawSocket socket(i % 2 == 0 ? server.transmit_port()
                                                       : server.command_port());
        }
        return Crowd{};
    });
    weigh("slow heads", 200UL * 64 * kibibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < 200; ++i) {
            const auto slow = std::make_shared<HttpPeer>(server.command_port());
            slow->send("GET /page.bin" + std::string(1000, 'x'));
            crowd.push_back(slow);
        }
        return crowd;
    });
    weigh("half-closed and reset peers with downloads", 256 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(20, 200); ++i) {
            const auto gone = connect();
            EXPECT_EQ(gone->prepare(request::Download{.path = "long"}).status, status_ok);
            gone->send(request::download_file_data(0));
            if (i % 2 == 0) {
                gone->socket().finish_sending();
            } else {
                gone->socket().reset();
            }
            crowd.push_back(gone);
        }
        return crowd;
    });
}

}  // namespace
