#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "trials/model_client.h"

// A hundred clients do whatever is valid, for as long as is wished, and hold what the server says
// against their models.
namespace {

using measure::measured;
using measure::mebibyte;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr unsigned client_count = 100;

// The long form's pause of a client between two operations, so that a machine can be soaked beside
// other work.
constexpr std::chrono::milliseconds think_time{200};

seconds wished_time() {
    const char* wish = std::getenv("TRANSMIT_SOAK_SECONDS");
    return seconds(wish != nullptr ? std::stol(wish) : 0);
}

struct Sample {
    double second;
    double bytes;
};

// Bytes a second, by the line of least squares.
double slope(const std::vector<Sample>& samples) {
    Sample middle{0, 0};
    for (const Sample& sample : samples) {
        middle.second += sample.second / static_cast<double>(samples.size());
        middle.bytes += sample.bytes / static_cast<double>(samples.size());
    }
    double products = 0;
    double squares = 0;
    for (const Sample& sample : samples) {
        products += (sample.second - middle.second) * (sample.bytes - middle.bytes);
        squares += (sample.second - middle.second) * (sample.second - middle.second);
    }
    return products / squares;
}

class SoakTrial : public ServerTest {
  protected:
    void be_a_client(unsigned number) {
        try {
            trials::ModelClient client(server, number);
            while (!is_over_ && !HasFailure()) {
                client.do_something();
                if (wished_time().count() > 0) {
                    std::this_thread::sleep_for(think_time);
                } else if (client.operations() >= 30) {
                    break;
                }
            }
            client.check_tree();
            operations_ += client.operations();
        } catch (const std::exception& error) {
            ADD_FAILURE() << "client " << number << ": " << error.what();
        }
    }

    // Has the server keep all the receive blocks that it ever keeps of a crowd that has gone
    // (BufferMemory), so that whatever it takes on top of that is lost.
    void fill_pools() {
        constexpr std::uint64_t most_kept = 5 * mebibyte;
        const std::uint64_t memory_before = memory();
        const std::string head_of_64_mebibytes("\0\x02\0\0\x03\xff\xff\xff", 8);
        std::vector<std::unique_ptr<Peer>> crowd;
        for (int number = 0; number < 20; ++number) {
            crowd.push_back(std::make_unique<Peer>(server.transmit_port()));
            crowd.back()->send(head_of_64_mebibytes + std::string(300'000, 'x'));
        }
        EXPECT_TRUE(await([&] { return memory() >= memory_before + most_kept; }));
        crowd.clear();
        EXPECT_TRUE(await([&] { return peer.node_count() == 1; }));
    }

    // One sample a second, from when the server has met everything once.
    std::vector<Sample> watch_memory(seconds time) {
        std::vector<Sample> samples;
        const auto start = steady_clock::now();
        for (seconds now{1}; now <= time && !HasFailure(); ++now) {
            std::this_thread::sleep_until(start + now);
            if (now > time / 6) {
                samples.push_back(
                    {static_cast<double>(now.count()), static_cast<double>(memory())});
            }
        }
        return samples;
    }

    std::atomic<bool> is_over_{false};
    std::atomic<std::uint64_t> operations_{0};
};

TEST_F(SoakTrial, EveryClientFindsWhatItsModelHolds) {
    if (wished_time().count() > 0) {
        fill_pools();
    }
    std::vector<std::thread> clients;
    for (unsigned number = 0; number < client_count; ++number) {
        clients.emplace_back([this, number] { be_a_client(number); });
    }
    const std::vector<Sample> samples = watch_memory(wished_time());
    is_over_ = wished_time().count() > 0;
    for (std::thread& client : clients) {
        client.join();
    }
    measured() << operations_ << " operations of " << client_count << " clients\n";
    if (!samples.empty()) {
        const double in_ten_minutes = slope(samples) * 600;
        measured() << "memory at the end " << samples.back().bytes / mebibyte << " MiB, slope "
                   << in_ten_minutes / mebibyte << " MiB in 10 minutes\n";
        EXPECT_LE(in_ten_minutes, wished_time() >= seconds(300) ? mebibyte : 1e12);
    }
}

}  // namespace
