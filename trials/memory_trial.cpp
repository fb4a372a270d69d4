#include <gtest/gtest.h>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
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

// Raises the number of descriptors that this process may have as far as it goes, and returns it.
// The server has started already and keeps its own limit.
std::size_t raise_own_limit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    constexpr std::size_t others = 500;
    return limit.rlim_max - others;
}

// Clients that each send the beginning of a frame of 64 MiB, as fast as the server takes it, until
// the object goes.
class IncompleteFrames {
  public:
    IncompleteFrames(std::uint16_t port, int count) {
        const std::string head("\0\x02\0\0\x03\xff\xff\xff", 8);
        for (int i = 0; i < count; ++i) {
            clients_.push_back({std::make_unique<Peer>(port)});
            clients_.back().peer->send(head);
        }
        thread_ = std::jthread([this](const std::stop_token& stop) { feed(stop); });
    }

  private:
    struct Client {
        std::unique_ptr<Peer> peer;
        std::size_t left = 60 * mebibyte;
    };

    void feed(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            std::vector<pollfd> waits;
            for (const Client& client : clients_) {
                const int socket = client.left > 0 ? client.peer->socket().descriptor() : -1;
                waits.push_back({socket, POLLOUT, 0});
            }
            poll(waits.data(), waits.size(), 100);
            for (std::size_t i = 0; i < waits.size(); ++i) {
                if (waits[i].revents != 0) {
                    send_part(clients_[i]);
                }
            }
        }
    }

    // One that the server has ended sends no more.
    void send_part(Client& client) {
        const ssize_t sent =
            ::send(client.peer->socket().descriptor(), part_.data(),
                   std::min(client.left, part_.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            client.left -= static_cast<std::size_t>(sent);
        } else if (errno != EAGAIN) {
            client.left = 0;
        }
    }

    const std::string part_ = std::string(mebibyte, 'x');
    std::vector<Client> clients_;
    std::jthread thread_;
};

// Clients that receive a stream of equal messages slowly: one message each, then a pause, until the
// object goes.
class SlowReaders {
  public:
    static constexpr milliseconds pause{20};

    SlowReaders(std::vector<std::shared_ptr<Peer>> clients, std::string message, int most_messages)
        : clients_(std::move(clients)),
          message_(std::move(message)),
          thread_([this, most_messages](const std::stop_token& stop) {
              for (; !stop.stop_requested() && rounds_ < most_messages; ++rounds_) {
                  receive_one_each();
                  std::this_thread::sleep_for(pause);
              }
          }) {}

    // How many messages each client has received.
    int rounds() const { return rounds_; }

  private:
    void receive_one_each() {
        for (const auto& client : clients_) {
            EXPECT_TRUE(client->socket().receive(message_.size()) == message_);
        }
    }

    const std::vector<std::shared_ptr<Peer>> clients_;
    const std::string message_;
    std::atomic<int> rounds_ = 0;
    std::jthread thread_;
};

class MemoryTrial : public ServerTest {
  protected:
    using Crowd = std::vector<std::shared_ptr<void>>;

    MemoryTrial() {
        support::write_file(page_path("page.bin"), support::random_bytes(256 * kibibyte, 1));
        stored_file::put(in_storage("long"), std::string(100 * mebibyte, 'x'));
        stored_file::put(in_storage("folder/file"), bystanders_file_);
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
                   << " MiB afterwards\n";
        tell(what, times);
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

    static void tell(const std::string& what, const AnswerTimes& times) {
        measured() << what << ": of another client's answers 99 % came within "
                   << times.most.count() << " ms, the last within " << times.longest.count()
                   << " ms\n";
    }

    // Of many answers to another client's requests, on both ports. All of them are as they should
    // be.
    AnswerTimes answer_times() {
        HttpPeer browser(server.command_port());
        return answer_times(browser);
    }
    AnswerTimes answer_times(HttpPeer& browser) {
        std::vector<milliseconds> times;
        const auto time = [&](const auto& act) {
            const auto start = steady_clock::now();
            act();
            times.push_back(since(start));
        };
        const request::Download download{.path = "folder/file", .encrypted = true};
        for (int i = 0; i < 300; ++i) {
            time([&] { EXPECT_EQ(peer.ask(request::check_storage_id(1)), status_ok); });
            time([&] { EXPECT_EQ(browser.get("/none").status, "404 Not Found"); });
            time([&] { EXPECT_EQ(peer.list("folder").status, message::status_path_is_directory); });
            time([&] {
                const request::Upload upload{
                    .path = "uploaded", .size = std::ssize(bystanders_file_), .time = 1000 + i};
                EXPECT_EQ(peer.upload(upload, bystanders_file_), status_ok);
            });
            time([&] {
                EXPECT_EQ(peer.prepare(download).status, status_ok);
                EXPECT_TRUE(peer.stream_from(0, true).plain == bystanders_file_);
            });
        }
        std::sort(times.begin(), times.end());
        return {.most = times[times.size() * 99 / 100], .longest = times.back()};
    }

    bool has_logged(const char* text) const {
        return server.root().run_log().find(text) != std::string::npos;
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

    // A client with a download under way, as fast as it goes, of which it reads nothing yet.
    std::shared_ptr<Peer> unread_download() {
        auto client = connect();
        EXPECT_EQ(client->ask(request::set_transmit_speed(4294967295)), status_ok);
        EXPECT_EQ(client->prepare(request::Download{.path = "long"}).status, status_ok);
        client->send(request::download_file_data(0));
        return client;
    }

    // Clients that connect to the command port and say nothing. They don't wait until the server
    // accepts them.
    Crowd silent_browsers(std::size_t count) const {
        Crowd crowd;
        for (std::size_t i = 0; i < count; ++i) {
            const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            crowd.push_back(std::shared_ptr<void>(nullptr, [socket](void*) { ::close(socket); }));
            support::with_loopback(::connect, socket, server.command_port());
        }
        return crowd;
    }

    std::shared_ptr<Peer> connect() { return std::make_shared<Peer>(server.transmit_port()); }
    std::string page_path(const std::string& name) const {
        return server.root().path() + "www/" + name;
    }

  private:
    const std::string bystanders_file_ = support::random_bytes(200 * kibibyte, 2);
};

TEST_F(MemoryTrial, CrowdsThatNeverRead) {
    weigh("downloads at the highest speed", 1024 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(4, 60); ++i) {
            crowd.push_back(unread_download());
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
    weigh("incomplete frames of 60 MiB, beside downloads that nobody reads", 1024 * mebibyte, [&] {
        Crowd crowd;
        for (int i = 0; i < sized(6, 33); ++i) {
            crowd.push_back(unread_download());
        }
        crowd.push_back(std::make_shared<IncompleteFrames>(server.transmit_port(), sized(24, 130)));
        return crowd;
    });
}

TEST_F(MemoryTrial, SlowReadersAreServed) {
    const int count = sized(10, 40);
    std::vector<std::shared_ptr<Peer>> clients;
    clients.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        clients.push_back(unread_download());
    }
    constexpr std::size_t payload = 64 * kibibyte;
    const std::string message = clients.front()->receive_bytes(8 + payload);
    ASSERT_TRUE(message.ends_with(std::string(payload, 'x')));
    constexpr int most_messages = 1500;  // of the 1,600 of the file
    SlowReaders readers(clients, message, most_messages);
    const AnswerTimes times = answer_times();
    const int rounds = readers.rounds();
    EXPECT_TRUE(await([&] { return readers.rounds() > std::min(rounds + 20, most_messages - 1); }));
    EXPECT_EQ(peer.node_count(), count + 1);
    tell("slow readers of downloads at the highest speed", times);
}

// More than the port's share of the descriptors and the queue behind it take.
TEST_F(MemoryTrial, SilentBrowsers) {
    constexpr rlimit usual_limit{.rlim_cur = 1024, .rlim_max = 1024};
    ASSERT_EQ(prlimit(server.pid(), RLIMIT_NOFILE, &usual_limit, nullptr), 0);
    HttpPeer browser(server.command_port());
    EXPECT_EQ(browser.get("/none").status, "404 Not Found");
    const std::size_t count = std::min(sized<std::size_t>(3000, 20000), raise_own_limit());
    const Crowd crowd = silent_browsers(count);
    EXPECT_TRUE(await([&] { return has_logged("accepts no more connections for now"); }));
    const AnswerTimes times = answer_times(browser);
    Peer newcomer(server.transmit_port());
    EXPECT_EQ(newcomer.ask(request::check_storage_id(1)), status_ok);
    tell(std::to_string(count) + " silent connections to the command port", times);
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
    const std::size_t count = std::min(sized<std::size_t>(300, 12000), raise_own_limit() / 2);
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
