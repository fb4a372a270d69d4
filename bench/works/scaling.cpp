#include "bench/works/works.h"

namespace bench {
namespace {

constexpr std::int64_t mebibyte = 1 << 20;

std::string target(int stream) {
    return "uploads/" + std::to_string(stream);
}

// `amount` bytes in all, in files of that size, shared out among the streams.
Task moving(Stage& stage, bool down, std::int64_t size, int streams, std::int64_t amount) {
    const std::int64_t repeats = std::max<std::int64_t>(amount / (size * streams), 1);
    const std::string direction = down ? "download, " : "upload, ";
    Task task{.title = direction + std::to_string(size / mebibyte) +
                       " MiB, streams: " + std::to_string(streams)};
    task.amount = static_cast<double>(size * streams * repeats);
    task.streams = streams;
    task.work = [=](Client& client, int stream) {
        for (std::int64_t repeat = 0; repeat < repeats; ++repeat) {
            down ? client.download("source", size)
                 : client.upload(target(stream) + '-' + std::to_string(repeat), size);
        }
    };
    task.clean_up = [&workspace = stage.workspace()] {
        workspace.remove("uploads");
        workspace.make_folder("uploads");
    };
    return task;
}

void both_ways(Stage& stage, std::int64_t size, int streams, std::int64_t amount) {
    for (const bool down : {true, false}) {
        stage.compare(moving(stage, down, size, streams, amount), {stage.server()});
    }
}

}  // namespace

void streams(Stage& stage) {
    stage.workspace().make_file("source", mebibyte);
    for (const int count : {1, 10, 100, 1000}) {
        both_ways(stage, mebibyte, count, 1000 * mebibyte);
    }
}

void sizes(Stage& stage) {
    std::vector<std::int64_t> mebibytes = {1, 16, 256, 1024};
    if (stage.options().full) {
        mebibytes.push_back(20L * 1024);
    }
    for (const std::int64_t size : mebibytes) {
        stage.workspace().make_file("source", size * mebibyte);
        both_ways(stage, size * mebibyte, 1, 1024 * mebibyte);
    }
}

}  // namespace bench
