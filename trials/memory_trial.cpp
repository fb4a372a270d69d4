#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
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

// A client that does one thing again and again, until the object goes.
class Busy {
  public:
    explicit Busy(std::function<void()> act)
        : thread_([act = std::move(act)](const std::stop_token& stop) {
              while (!stop.stop_requested()) {
                  act();
              }
          }) {}

  private:
    std::jthread thread_;
};

// Connections to one port of the server that this process can hold, at most `wanted`. Raises this
// process's own limit; the server has started already and keeps its own.
std::size_t affordable_connections(std::size_t wanted) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    constexpr std::size_t others = 500;
    return std::min(wanted, limit.rlim_max / 2 - others);
}

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
    void weigh(const char* what, std::uint64_t bound, const std::function<Crowd()>& gather,
               std::uint64_t kept = kept_memory) {
        SCOPED_TRACE(what);
        const std::uint64_t memory_before = memory();
        const std::size_t descriptors_before = descriptors();
        Crowd crowd = gather();
        const AnswerTimes times = answer_times();
        const std::uint64_t taken = growth_since(memory_before);
        crowd.clear();
        EXPECT_TRUE(await([&] { return peer.node_count() == 1; }));
        EXPECT_TRUE(await([&] { return descriptors() <= descriptors_before; }));
        const std::uint64_t left = growth_since(memory_before);
        measured() << what << ": " << taken / mebibyte << " MiB, " << left / mebibyte
                   << " MiB afterwards; of another client's answers 99 % came within "
                   << times.most.count() << " ms, the last within " << times.longest.count()
                   << " ms\n";
        EXPECT_LE(taken, bound + kept);
        EXPECT_LE(left, kept);
    }

    std::uint64_t growth_since(std::uint64_t memory_before) {
        const std::uint64_t now = memory();
        return now - std::min(now, memory_before);
    }

    struct AnswerTimes {
        milliseconds most;  // 99 of 100
        milliseconds longest;
    };

    // Of many answers to another client's requests, on both ports.
    AnswerTimes answer_times() {
        std::vector<milliseconds> times;
        HttpPeer browser(server.command_port());
        for (int i = 0; i < 300; ++i) {
            const auto start = steady_clock::now();
            EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok);
            EXPECT_EQ(browser.get("/none").status, "404 Not Found");
            times.push_back(since(start));
        }
        std::sort(times.begin(), times.end());
        return {.most = times[times.size() * 99 / 100], .longest = times.back()};
    }

    void run_sessions(int count) {
        for (int i = 0; i < count; ++i) {
            Peer session(server.transmit_port());
            EXPECT_EQ(session.ask(request::check_storage_id(1)), status_ok);
        }
    }

    // Clients that connect, ask once and stay.
    Crowd idle_connections(std::size_t count) {
        Crowd crowd;
        for (std::size_t i = 0; i < count; ++i) {
            const auto idle = connect();
            EXPECT_EQ(idle->ask(request::check_storage_id(1)), status_ok);
            crowd.push_back(idle);
        }
        return crowd;
    }

    // Two clients that connect and reset all the time.
    Crowd restless_clients() {
        const auto reset_one = [port = server.transmit_port()] {
            support::RawSocket(port).reset();
        };
        return {std::make_shared<Busy>(reset_one), std::make_shared<Busy>(reset_one)};
    }

    void fill_folder(int count) {
        for (int i = 0; i < count; ++i) {
            stored_file::put(in_storage("full/file number " + std::to_string(i)), "");
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
        fill_folder(sized(1000, 20000));
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
    weigh("idle connections", 2000UL * 24 * kibibyte,
          [&] { return idle_connections(sized<std::size_t>(300, 2000)); });
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

TEST_F(MemoryTrial, CrowdsThatKeepTheServerBusy) {
    fill_folder(sized(1000, 20000));
    weigh("clients that list a large folder all the time", 128 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(8, 40); ++i) {
            crowd.push_back(std::make_shared<Busy>([client = connect()] {
                EXPECT_EQ(client->list("full").status, message::status_path_is_directory);
            }));
        }
        return crowd;
    });
    const std::size_t count = affordable_connections(sized<std::size_t>(300, 12000));
    measured() << "the next two crowds stand beside " << count << " idle connections\n";
    // The records of a snapshot and the nodes in their pool stay.
    const std::uint64_t kept = kept_memory + count * 6 * kibibyte;
    const std::uint64_t idle_memory = count * 24 * kibibyte;
    weigh(
        "two clients that connect and reset", idle_memory,
        [&] {
            Crowd crowd = idle_connections(count);
            for (const auto& client : restless_clients()) {
                crowd.push_back(client);
            }
            return crowd;
        },
        kept);
    weigh(
        "unread lists of all nodes, which come and go", idle_memory + 1024 * mebibyte,
        [&] {
            Crowd crowd = idle_connections(count);
            for (const auto& client : restless_clients()) {
                crowd.push_back(client);
            }
            for (int i = 0; i < sized(20, 400); ++i) {
                const auto greedy = std::make_shared<HttpPeer>(server.command_port());
                greedy->send(get_request("/sys/transmit_list"));
                crowd.push_back(greedy);
            }
            return crowd;
        },
        kept);
}

}  // namespace
