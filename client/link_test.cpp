#include "client/link_test.h"

#include <algorithm>
#include <vector>

#include "client/detail/wire.h"

namespace transmit {
namespace {

using Clock = std::chrono::steady_clock;

// Requests on their way at any moment: 4 MiB, so that links of up to 32 MiB/s at 125 ms are filled.
constexpr int window = 64;

message::TestDataRequest longest_request() {
    message::TestDataRequest request{};
    request.data_length = longest_test;
    return request;
}

// Keeps `window` requests under way until the time is up, and then takes what is still to come.
template <typename Row, typename... Tail>
Result<LinkSpeed> measure(Connection& connection, Clock::duration duration, Tail... tails) {
    LinkSpeed speed;
    int under_way = 0;
    const auto start = Clock::now();
    while (true) {
        const bool time_left = Clock::now() - start < duration;
        for (; time_left && under_way < window; ++under_way) {
            if (auto sent = connection.wire().send_request<Row>(longest_request(), tails...);
                !sent) {
                return sent.error();
            }
        }
        if (under_way == 0) {
            break;
        }
        if (const auto answer = connection.wire().receive_response<Row>(); !answer) {
            return answer.error();
        }
        --under_way;
        speed.bytes += longest_test;
    }
    speed.time = Clock::now() - start;
    return speed;
}

}  // namespace

Result<std::chrono::nanoseconds> measure_round_trip(Connection& connection, int count) {
    std::vector<std::chrono::nanoseconds> times;
    for (int round = 0; round < std::max(count, 1); ++round) {
        const auto start = Clock::now();
        if (auto answered = connection.test_upload_data(0); !answered) {
            return answered.error();
        }
        times.push_back(Clock::now() - start);
    }
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

Result<LinkSpeed> measure_upload(Connection& connection, std::chrono::milliseconds duration) {
    static constexpr std::array<char, longest_test> bytes{};
    return measure<message::TestUploadData>(connection, duration,
                                            std::string_view(bytes.data(), bytes.size()));
}

Result<LinkSpeed> measure_download(Connection& connection, std::chrono::milliseconds duration) {
    return measure<message::TestDownloadData>(connection, duration);
}

}  // namespace transmit
