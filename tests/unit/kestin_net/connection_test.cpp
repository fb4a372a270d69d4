#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kestin_net/detail/event_loop.h"
#include "kestin_net/detail/receive_buffer.h"
#include "kestin_net/detail/send_chain.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/unit/kestin_net/scripted_service.h"

namespace kestin_net_test {
namespace {

using Kestin::Net::detail::EventLoop;
using Kestin::Net::detail::receive_limit;
using Kestin::Net::detail::send_mark;
using Kestin::Net::detail::Settings;
using support::RawSocket;

constexpr std::size_t chunk_size = 8 + 65536 + 16;

// Chunk `number` of a stream in which no two neighbours are alike.
std::string chunk(std::uint64_t number, std::size_t size = chunk_size) {
    return std::string(size, static_cast<char>('a' + number % 23));
}

class ConnectionTest : public testing::Test {
  protected:
    // The loop runs until the result goes: a test holds it behind what its callbacks refer to.
    [[nodiscard]] std::unique_ptr<EventLoop> start(std::uint64_t thread_count = 4) {
        settings_.thread_count = thread_count;
        auto loop = std::make_unique<EventLoop>(service_, settings_);
        EXPECT_TRUE(loop->start({&port_, 1}));
        return loop;
    }
    void TearDown() override { EXPECT_EQ(service_.overlaps.count(), 0U); }

    // Makes every connection one to which the service attached something.
    void attach_user_data() {
        service_.accept = [this](Connection& connection, std::uint16_t) {
            connection.set_user_data(&marker_);
            return true;
        };
    }

    // Whether a small request of another connection is answered now; needs a service that echoes
    // what begins with "ping".
    bool serves_others() {
        RawSocket other(port_);
        return other.send("ping") && other.receive(4) == "ping";
    }

    ScriptedService service_;
    Settings settings_;
    std::uint16_t port_ = support::free_port();
    int marker_ = 0;
};

TEST_F(ConnectionTest, CallbacksOfDifferentConnectionsRunAtTheSameTime) {
    std::barrier both(2);
    service_.recv = [&](Connection& connection) {
        both.arrive_and_wait();
        return echo(connection);
    };
    auto loop = start(2);
    RawSocket one(port_);
    RawSocket other(port_);
    one.send("1");
    other.send("2");
    EXPECT_EQ(one.receive(1), "1");
    EXPECT_EQ(other.receive(1), "2");
}

TEST_F(ConnectionTest, CallbacksOfOneConnectionNeverOverlap) {
    service_.recv = echo;
    auto loop = start();
    std::vector<std::thread> peers;
    std::atomic<int> faultless = 0;
    for (int peer = 0; peer < 4; ++peer) {
        peers.emplace_back([&] {
            RawSocket socket(port_);
            for (int round = 0; round < 200; ++round) {
                socket.send("a");
                socket.send("b");
                faultless += socket.receive(2) == "ab" ? 1 : 0;
            }
        });
    }
    for (std::thread& peer : peers) {
        peer.join();
    }
    EXPECT_EQ(faultless, 800);
}

TEST_F(ConnectionTest, FrameInOneBytePacketsIsWholeInTheEnd) {
    std::vector<std::uint64_t> sizes;
    service_.recv = [&](Connection& connection) {
        sizes.push_back(connection.recv_buffer_size());
        return connection.recv_buffer_size() < 10 || echo(connection);
    };
    auto loop = start();
    RawSocket peer(port_);
    for (std::uint64_t sent = 0; sent < 10; ++sent) {
        peer.send(std::string(1, static_cast<char>('0' + sent)));
        ASSERT_TRUE(service_.recvs.await(sent + 1));
    }
    EXPECT_EQ(peer.receive(10), "0123456789");
    EXPECT_EQ(sizes, (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(ConnectionTest, EveryWholeMessageOfOnePacketIsOfferedAtOnce) {
    service_.recv = [](Connection& connection) {
        return connection.recv_buffer_size() < 4 || send_back(connection, take(connection, 4));
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("one two threfo");
    EXPECT_EQ(peer.receive(12), "one two thre");
    peer.send("ur");
    EXPECT_EQ(peer.receive(4), "four");
}

TEST_F(ConnectionTest, BufferOperationsBeyondWhatWaitsChangeNothing) {
    service_.recv = [](Connection& connection) {
        std::string bytes(8, '\0');
        const bool refused = !connection.recv_buffer_copy_len(bytes.data(), 8) &&
                             !connection.recv_buffer_move_len(bytes.data(), 8) &&
                             !connection.recv_buffer_drop_len(8);
        return refused && connection.recv_buffer_drop_len(0) &&
               connection.recv_buffer_copy_len(bytes.data(), 7) &&
               connection.recv_buffer_drop_len(2) && echo(connection);
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("seven b");
    EXPECT_EQ(peer.receive(5), "ven b");
}

TEST_F(ConnectionTest, FrameOf64MebibytesFitsAndTheNextOneToo) {
    const std::string frame(16 + 64 * 1024 * 1024, 'x');
    std::atomic<std::uint64_t> wrong = 0;
    attach_user_data();
    service_.recv = [&](Connection& connection) {
        while (connection.recv_buffer_size() >= frame.size()) {
            wrong += take(connection, frame.size()) == frame ? 0 : 1;
            send_back(connection, "k");
        }
        return true;
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send(frame + "xxx");
    EXPECT_EQ(peer.receive(1), "k");
    peer.send(frame.substr(3));
    EXPECT_EQ(peer.receive(1), "k");
    EXPECT_EQ(wrong, 0U);
}

TEST_F(ConnectionTest, FrameThatCantFitEndsTheConnection) {
    attach_user_data();
    service_.recv = [](Connection&) {
        return true;
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send(std::string(receive_limit + 1024 * 1024, 'x'));
    EXPECT_TRUE(peer.await_close());
    EXPECT_TRUE(service_.closes.await(1));
}

TEST_F(ConnectionTest, BatchOnTopOfTheMarkArrivesWholeAndNoMoreIsTaken) {
    std::atomic<int> taken = 0;
    service_.recv = [&](Connection& connection) {
        take(connection, connection.recv_buffer_size());
        send_back(connection, std::string(send_mark, '-'));
        for (std::uint64_t number = 0; number < 500; ++number) {
            taken += send_back(connection, chunk(number)) ? 1 : 0;
        }
        taken -= send_back(connection, chunk(0)) ? 1000 : 0;
        return true;
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("go");
    EXPECT_EQ(peer.receive(send_mark), std::string(send_mark, '-'));
    for (std::uint64_t number = 0; number < 500; ++number) {
        ASSERT_EQ(peer.receive(chunk_size), chunk(number)) << number;
    }
    EXPECT_EQ(taken, 500);
}

TEST_F(ConnectionTest, AnswerOf100MebibytesGoesOutInOnePiece) {
    const std::string answer(100 * 1024 * 1024, 'y');
    service_.recv = [&](Connection& connection) {
        take(connection, connection.recv_buffer_size());
        return send_back(connection, answer) && !send_back(connection, answer);
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("go");
    EXPECT_EQ(peer.receive(answer.size()), answer);
}

// A service that answers each byte with a head and the file.
class FileAnswerTest : public ConnectionTest {
  protected:
    FileAnswerTest() {
        service_.recv = [this](Connection& connection) {
            return take(connection, 1) == "?" &&
                   connection.send_buffer_fill_file("head", descriptor(), content_.size()) &&
                   !send_back(connection, "behind a file nothing more is taken");
        };
    }

    void make_file(std::uint64_t size) {
        content_ = support::random_bytes(size, 1);
        EXPECT_EQ(::pwrite(descriptor(), content_.data(), size, 0), std::ssize(content_));
    }
    int descriptor() { return ::fileno(file_.get()); }

    std::string content_;

  private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_{std::tmpfile(), &std::fclose};
};

TEST_F(FileAnswerTest, GoesOutWholeBehindItsHeadAndBeforeTheNextAnswer) {
    make_file(3 * send_mark);
    auto loop = start();
    RawSocket peer(port_);
    peer.send(std::string(50, '?'));
    for (int answer = 0; answer < 50; ++answer) {
        EXPECT_TRUE(peer.receive(4 + content_.size()) == "head" + content_) << answer;
    }
}

TEST_F(FileAnswerTest, EndsTheConnectionWhenTheFileShrinks) {
    make_file(30'000'000);
    auto loop = start();
    RawSocket peer(port_);
    peer.send("?");
    EXPECT_EQ(peer.receive(4), "head");
    ASSERT_EQ(::ftruncate(descriptor(), std::ssize(content_) / 2), 0);
    const std::string rest = peer.receive_to_end();
    EXPECT_LT(rest.size(), content_.size());
    EXPECT_TRUE(content_.starts_with(rest.substr(0, content_.size() / 2)));
}

TEST_F(ConnectionTest, SharedBodyTakesItsMemoryOnceAndReachesEveryReader) {
    const auto body = std::make_shared<const std::string>(support::random_bytes(3 << 20, 1));
    service_.recv = [&](Connection& connection) {
        take(connection, connection.recv_buffer_size());
        return connection.send_buffer_fill_shared("head", body) &&
               !send_back(connection, "behind a shared body nothing more is taken");
    };
    settings_.memory_budget = 2 * body->size();
    auto loop = start();
    std::vector<std::unique_ptr<RawSocket>> readers;
    for (std::uint64_t reader = 1; reader <= 20; ++reader) {
        readers.push_back(std::make_unique<RawSocket>(port_));
        readers.back()->send("?");
        ASSERT_TRUE(service_.recvs.await(reader));
    }
    for (const auto& reader : readers) {
        EXPECT_TRUE(reader->receive(4 + body->size()) == "head" + *body);
        reader->send("again");
    }
    for (const auto& reader : readers) {
        EXPECT_TRUE(reader->receive(4 + body->size()) == "head" + *body);
    }
}

// A request is two bytes and its answer a chunk of 64 KiB; "ping" is echoed.
class BackPressureTest : public ConnectionTest {
  protected:
    static constexpr std::uint64_t requests = 1000;

    void SetUp() override {
        service_.recv = [this](Connection& connection) {
            while (connection.recv_buffer_size() >= 2) {
                const std::string request = take(connection, 2);
                if (!send_back(connection, request == "go" ? chunk(answered_++) : request)) {
                    return false;
                }
            }
            return true;
        };
        loop_ = start();
    }
    void ask_and_not_read(RawSocket& peer) {
        std::string all;
        for (std::uint64_t number = 0; number < requests; ++number) {
            all += "go";
        }
        peer.send(all);
        ASSERT_TRUE(service_.recvs.await(1));
        ASSERT_TRUE(serves_others());
    }

    void TearDown() override {
        loop_.reset();
        ConnectionTest::TearDown();
    }

    std::atomic<std::uint64_t> answered_ = 0;
    std::unique_ptr<EventLoop> loop_;
};

TEST_F(BackPressureTest, PeerThatDoesNotReadIsHeldBackAndServedWhenItDoes) {
    RawSocket peer(port_);
    ask_and_not_read(peer);
    EXPECT_TRUE(comes_to_rest());
    EXPECT_LT(answered_, requests / 2);
    for (std::uint64_t number = 0; number < requests; ++number) {
        ASSERT_EQ(peer.receive(chunk_size), chunk(number)) << number;
    }
    EXPECT_EQ(answered_, requests);
}

TEST_F(BackPressureTest, HeldPeerThatResetsEnds) {
    RawSocket peer(port_);
    ask_and_not_read(peer);
    peer.reset();
    EXPECT_TRUE(service_.closes.await(2));
    EXPECT_LT(answered_, requests);
}

TEST_F(BackPressureTest, HeldPeerThatHasFinishedSendingGetsEverything) {
    RawSocket peer(port_);
    ask_and_not_read(peer);
    peer.finish_sending();
    EXPECT_TRUE(comes_to_rest());
    EXPECT_EQ(peer.receive_to_end().size(), requests * chunk_size);
}

TEST_F(ConnectionTest, SendingStopsAfterFourEmptyCallsAndNoEarlier) {
    // Appends at the calls 4, 7 and 8 and never again: after three, two and no empty ones.
    std::atomic<std::uint64_t> calls = 0;
    service_.send = [&](Connection& connection) {
        const std::uint64_t call = ++calls;
        return (call != 4 && call != 7 && call != 8) || send_back(connection, "x");
    };
    auto loop = start();
    RawSocket peer(port_);
    EXPECT_EQ(peer.receive(3), "xxx");
    ASSERT_TRUE(service_.sends.await(12));
    EXPECT_TRUE(comes_to_rest());
    EXPECT_EQ(calls, 12U);
    peer.send("again");
    ASSERT_TRUE(service_.sends.await(16));
    ASSERT_TRUE(service_.recvs.await(1));
}

TEST_F(ConnectionTest, PumpFillsUpToTheMarkAndGoesOnAsThePeerReads) {
    constexpr std::uint64_t chunks = 2000;
    std::atomic<std::uint64_t> sent = 0;
    service_.send = [&](Connection& connection) {
        return sent == chunks || send_back(connection, chunk(sent++));
    };
    auto loop = start();
    RawSocket peer(port_);
    EXPECT_TRUE(service_.sends.await(8));
    EXPECT_LT(sent, chunks);
    for (std::uint64_t number = 0; number < chunks; ++number) {
        ASSERT_EQ(peer.receive(chunk_size), chunk(number)) << number;
    }
}

TEST_F(ConnectionTest, HalfClosedPeerStillGetsItsAnswerAndTheRestOfTheStream) {
    std::atomic<std::uint64_t> left = 0;
    service_.recv = [&](Connection& connection) {
        take(connection, connection.recv_buffer_size());
        left = 200;
        return send_back(connection, "answer");
    };
    service_.send = [&](Connection& connection) {
        return left == 0 || send_back(connection, chunk(left--));
    };
    auto loop = start();
    RawSocket peer(port_);
    peer.send("go");
    peer.finish_sending();
    EXPECT_EQ(peer.receive_to_end().size(), 6 + 200 * chunk_size);
    EXPECT_TRUE(service_.closes.await(1));
}

// An end that gets lost shows only while nothing else wakes the threads that wait for events.
TEST_F(ConnectionTest, PeersThatFinishTogetherBothSeeTheEnd) {
    service_.recv = echo;
    auto loop = start(10);
    for (int round = 0; round < 5000; ++round) {
        RawSocket one(port_);
        RawSocket other(port_);
        one.send("1");
        other.send("2");
        one.finish_sending();
        other.finish_sending();
        ASSERT_EQ(one.receive(1) + other.receive(1), "12");
        ASSERT_TRUE(one.await_close() && other.await_close()) << round;
    }
}

TEST_F(ConnectionTest, PeerThatOnlyClosesOrResetsIsClosedOnce) {
    std::vector<std::uint16_t> ports;
    attach_user_data();
    service_.close = [&](Connection& connection) {
        std::string address;
        std::uint16_t port = 0;
        EXPECT_TRUE(connection.get_peer_address(address, port));
        EXPECT_EQ(address, "127.0.0.1");
        EXPECT_EQ(connection.get_user_data(), &marker_);
        ports.push_back(port);
    };
    auto loop = start();
    std::vector<std::uint16_t> expected;
    for (const bool reset : {false, true}) {
        RawSocket peer(port_);
        ASSERT_TRUE(service_.accepts.await(expected.size() + 1));
        expected.push_back(peer.local_port());
        reset ? peer.reset() : peer.finish_sending();
        ASSERT_TRUE(service_.closes.await(expected.size()));
    }
    loop.reset();
    EXPECT_EQ(service_.closes.count(), 2U);
    EXPECT_EQ(ports, expected);
}

TEST_F(ConnectionTest, FalseFromACallbackEndsTheConnection) {
    std::atomic<int> refusing = 0;
    service_.accept = [&](Connection&, std::uint16_t port) {
        return port == port_ && refusing != 1;
    };
    service_.recv = [&](Connection& connection) {
        return refusing != 2 && echo(connection);
    };
    service_.send = [&](Connection&) {
        return refusing != 3;
    };
    auto loop = start();
    for (refusing = 1; refusing <= 3; ++refusing) {
        RawSocket peer(port_);
        peer.send("x");
        EXPECT_TRUE(peer.await_close()) << refusing;
    }
    EXPECT_TRUE(service_.closes.await(2));
    loop.reset();
    EXPECT_EQ(service_.closes.count(), 2U);
}

// The service expects a request within a second: four bytes beginning with "p", for which it sends
// an answer. It drops what begins with "j", and waits for more of what begins with "w".
class ExpectationTest : public ConnectionTest {
  protected:
    void serve(const std::string& answer) {
        service_.accept = [this](Connection& connection, std::uint16_t) {
            connection.expect_within(most_bytes, expects_ ? 1 : 0);
            return true;
        };
        service_.recv = [answer](Connection& connection) {
            const std::uint8_t first = *connection.recv_buffer_front(1);
            if (first == 'j') {
                take(connection, connection.recv_buffer_size());
            }
            if (first != 'p' || connection.recv_buffer_size() < 4) {
                return true;
            }
            take(connection, 4);
            connection.expect_within(most_bytes, 1);
            return send_back(connection, answer);
        };
        loop_ = start();
    }
    void TearDown() override {
        loop_.reset();
        ConnectionTest::TearDown();
    }

    static constexpr std::uint64_t most_bytes = 1000;
    std::atomic<bool> expects_ = true;
    std::unique_ptr<EventLoop> loop_;
};

TEST_F(ExpectationTest, ConnectionThatOnlySendsJunkEndsLikeASilentOne) {
    serve("pong");
    RawSocket silent(port_);
    EXPECT_TRUE(silent.await_close());
    RawSocket junk(port_);
    bool ended = false;
    for (std::uint64_t sent = 0; !ended && sent < most_bytes / 2; ++sent) {
        junk.send("j");
        ended = service_.closes.await(2, std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(ended);
}

TEST_F(ExpectationTest, EndsOnlyTheConnectionOnWhichARequestIsLate) {
    expects_ = false;
    serve("pong");
    RawSocket patient(port_);
    patient.send("pin");
    ASSERT_TRUE(service_.recvs.await(1));
    RawSocket late(port_);
    late.send("pingpin");
    EXPECT_EQ(late.receive(4), "pong");
    EXPECT_TRUE(late.await_close());
    EXPECT_TRUE(service_.closes.await(1));
    patient.send("g");
    EXPECT_EQ(patient.receive(4), "pong");
}

TEST_F(ExpectationTest, TimeStandsWhileThePeerHasAnAnswerToRead) {
    const std::string answer(30 * 1024 * 1024, 'a');
    serve(answer);
    RawSocket slow(port_);
    slow.send("ping");
    ASSERT_TRUE(service_.recvs.await(1));
    RawSocket silent(port_);
    EXPECT_TRUE(silent.await_close());
    EXPECT_EQ(slow.receive(answer.size()).size(), answer.size());
    EXPECT_TRUE(slow.await_close());
}

TEST_F(ExpectationTest, MoreBytesThanExpectedEndTheConnection) {
    serve("pong");
    RawSocket peer(port_);
    peer.send("ping" + std::string(most_bytes, 'w'));
    EXPECT_EQ(peer.receive(4), "pong");
    peer.send("w");
    EXPECT_TRUE(peer.await_close());
}

TEST_F(ConnectionTest, SilentConnectionEndsAfterTheIdleLimit) {
    settings_.idle_limit = std::chrono::milliseconds(100);
    auto loop = start();
    RawSocket peer(port_);
    EXPECT_TRUE(peer.await_close());
    EXPECT_TRUE(service_.closes.await(1));
}

// A request begins with a word of four letters and six digits of KiB. "take" is followed by the
// rest of so many KiB, and answered by "k" when all of it is there; "send" is answered by so many
// KiB.
class MemoryTest : public ConnectionTest {
  protected:
    static constexpr std::uint64_t mebibyte = 1024 * 1024;
    static constexpr std::size_t head_size = 10;

    MemoryTest() {
        service_.recv = [](Connection& connection) {
            while (connection.recv_buffer_size() >= head_size) {
                std::string head(head_size, ' ');
                connection.recv_buffer_copy_len(head.data(), head.size());
                const std::uint64_t size = 1024 * std::stoul(head.substr(4));
                if (head.starts_with("send")) {
                    take(connection, head_size);
                    return send_back(connection, std::string(size, 's'));
                }
                if (connection.recv_buffer_size() < size) {
                    return true;
                }
                take(connection, size);
                send_back(connection, "k");
            }
            return true;
        };
        settings_.memory_budget = 16 * mebibyte;
        settings_.memory_patience = std::chrono::hours(1);
    }

    static std::string request(const std::string& word, std::uint64_t kibibytes) {
        const std::string digits = std::to_string(kibibytes);
        return word + std::string(head_size - word.size() - digits.size(), '0') + digits;
    }
    static std::string frame(std::uint64_t kibibytes) {
        const std::string head = request("take", kibibytes);
        return head + std::string(1024 * kibibytes - head.size(), 'x');
    }

    // Whether other peers are served: a frame of 64 KiB in, two blocks out.
    bool serves_small_requests() {
        RawSocket other(port_);
        return other.send(frame(64)) && other.receive(1) == "k" &&
               other.send(request("send", 100)) && other.receive(100 * 1024).size() == 100 * 1024;
    }
    // Peers that send all but the end of a large frame, without waiting for it to be taken.
    void send_beginnings(int count, std::uint64_t kibibytes) {
        for (int peer = 0; peer < count; ++peer) {
            senders_.emplace_back([this, kibibytes] {
                const std::string whole = frame(kibibytes);
                RawSocket socket(port_);
                socket.send(whole.substr(0, whole.size() - 1));
                ended_.await(1);
                socket.send("x");
                finished_ += socket.receive(1) == "k" ? 1 : 0;
            });
        }
        ASSERT_TRUE(service_.accepts.await(service_.closes.count() + static_cast<unsigned>(count)));
    }
    void finish_frames() {
        ended_.add();
        for (std::thread& sender : senders_) {
            sender.join();
        }
        senders_.clear();
    }

    Tally ended_;
    std::vector<std::thread> senders_;
    std::atomic<int> finished_ = 0;
};

TEST_F(MemoryTest, WithoutAnyTheFloorServesAFrameAndTwoBlocks) {
    settings_.memory_budget = 0;
    auto loop = start();
    EXPECT_TRUE(serves_small_requests());
}

// A frame fits into half of the reserve, as the largest one does in the real budget.
TEST_F(MemoryTest, IncompleteFramesWaitAndAreTakenOneAfterTheOtherWhenMemoryComesBack) {
    auto loop = start();
    send_beginnings(12, 2000);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(serves_small_requests());
    }
    EXPECT_LE(service_.closes.count(), 20U);
    // Those that got their memory finish, and what they give back lets the others finish.
    finish_frames();
    EXPECT_EQ(finished_, 12);
}

TEST_F(MemoryTest, FramesThatWaitForEachOtherEndWithTheLargestHolder) {
    settings_.memory_patience = std::chrono::seconds(2);
    auto loop = start();
    send_beginnings(12, 9000);
    EXPECT_TRUE(service_.closes.await(1));
    finish_frames();
    EXPECT_GT(finished_, 0);
    EXPECT_LT(finished_, 12);
    EXPECT_TRUE(serves_small_requests());
}

TEST_F(MemoryTest, FrameThatPausesStaysWhenNobodyElseWaitsForMemory) {
    settings_.memory_budget = 64 * mebibyte;
    settings_.memory_patience = std::chrono::milliseconds(300);
    auto loop = start();
    constexpr std::uint64_t answer = 30 * 1024;
    RawSocket lazy(port_);
    lazy.send(request("send", answer));
    ASSERT_EQ(lazy.receive(1), "s");
    // Beside that answer, the frame is complete only if it gets memory of the reserve.
    const std::string whole = frame(15 * 1024);
    RawSocket paused(port_);
    ASSERT_TRUE(paused.send(whole.substr(0, whole.size() - 1)));
    ASSERT_EQ(lazy.receive(1024 * answer - 1).size(), 1024 * answer - 1);
    EXPECT_FALSE(service_.closes.await(1, std::chrono::seconds(2)));
    paused.send("x");
    EXPECT_EQ(paused.receive(1), "k");
}

TEST_F(MemoryTest, PeerThatLeavesWhileItsFrameWaitsGivesItsMemoryBack) {
    auto loop = start();
    std::vector<std::unique_ptr<RawSocket>> peers;
    for (int peer = 0; peer < 8; ++peer) {
        peers.push_back(std::make_unique<RawSocket>(port_));
        const std::string beginning = frame(9000);
        ASSERT_GT(::send(peers.back()->descriptor(), beginning.data(), beginning.size(),
                         MSG_DONTWAIT | MSG_NOSIGNAL),
                  0);
    }
    ASSERT_TRUE(service_.accepts.await(8));
    peers.clear();
    EXPECT_TRUE(service_.closes.await(8));
    RawSocket other(port_);
    other.send(frame(5000));
    EXPECT_EQ(other.receive(1), "k");
}

// One answer after the other, so that it is certain who holds the most when memory is short. All
// three fit into the budget, and overspend it even without the MiB that the sockets take.
TEST_F(MemoryTest, AnswersThatNobodyReadEndTheLargestHolderAndNobodyElse) {
    settings_.memory_budget = 256 * mebibyte;
    auto loop = start();
    const std::vector<std::uint64_t> sizes{80 * 1024, 100 * 1024, 55 * 1024};
    std::vector<std::unique_ptr<RawSocket>> lazy;
    for (const std::uint64_t kibibytes : sizes) {
        lazy.push_back(std::make_unique<RawSocket>(port_));
        lazy.back()->send(request("send", kibibytes));
        ASSERT_EQ(lazy.back()->receive(1), "s");
    }
    EXPECT_TRUE(service_.closes.await(1));
    EXPECT_TRUE(serves_small_requests());
    EXPECT_EQ(lazy[0]->receive(1024 * sizes[0] - 1).size(), 1024 * sizes[0] - 1);
    EXPECT_EQ(lazy[2]->receive(1024 * sizes[2] - 1).size(), 1024 * sizes[2] - 1);
    EXPECT_LT(lazy[1]->receive_to_end().size(), 1024 * sizes[1]);
}

TEST_F(MemoryTest, StreamsPauseAtWhatTheFloorHoldsWhileMemoryIsShort) {
    std::atomic<std::uint64_t> streamed = 0;
    service_.send = [&](Connection& connection) {
        for (int number = 0; number < 500 && !connection.send_buffer_is_full(); ++number) {
            send_back(connection, chunk(streamed++));
        }
        return true;
    };
    auto loop = start();
    std::vector<std::unique_ptr<RawSocket>> lazy;
    for (int peer = 0; peer < 60; ++peer) {
        lazy.push_back(std::make_unique<RawSocket>(port_));
    }
    ASSERT_TRUE(service_.accepts.await(60));
    EXPECT_TRUE(comes_to_rest());
    EXPECT_EQ(service_.closes.count(), 0U);
}

TEST_F(MemoryTest, HolderThatMovesNothingWhileMemoryIsShortIsClosed) {
    settings_.memory_budget = 64 * mebibyte;
    settings_.memory_silence = std::chrono::milliseconds(300);
    auto loop = start();
    RawSocket idle(port_);
    RawSocket lazy(port_);
    RawSocket other(port_);
    lazy.send(request("send", 30 * 1024));
    ASSERT_TRUE(service_.recvs.await(1));
    other.send(request("send", 20 * 1024));
    EXPECT_TRUE(service_.closes.await(1));
    EXPECT_TRUE(comes_to_rest());
    EXPECT_EQ(service_.closes.count(), 1U) << "memory suffices again";
    idle.send(frame(64));
    EXPECT_EQ(idle.receive(1), "k");
}

}  // namespace
}  // namespace kestin_net_test
