#include "client/detail/small_files.h"

#include <utility>

namespace transmit::detail {
namespace {

// Files that a worker takes at once, if they are small.
constexpr std::size_t most_small_files = 64;

}  // namespace

std::vector<std::size_t> SmallFiles::move(const std::vector<std::size_t>& files) {
    const auto connected = worker_.server.connect();
    if (!connected) {
        return files;
    }
    connection_ = *connected;
    send(*connection_, files);
    return left_.empty() ? std::vector<std::size_t>() : finish();
}

std::vector<std::size_t> SmallFiles::finish() {
    conclude_all();
    if (!left_.empty()) {
        tidy_up(*connection_);
    }
    return std::exchange(left_, {});
}

void SmallFiles::went_out(Run run) {
    under_way_.push_back(std::move(run));
    conclude_until(most_under_way_);
}

void SmallFiles::conclude_all() {
    conclude_until(0);
}

void SmallFiles::conclude_until(std::size_t count) {
    while (under_way_.size() > count || (!under_way_.empty() && !connection_->is_open())) {
        conclude(*connection_, under_way_.front());
        under_way_.pop_front();
    }
}

void SmallFiles::moved(const Sent& sent) {
    worker_.run.ended(sent.file, TransferReport{.size = sent.size, .moved = sent.size});
}

void move_files(Worker& worker, const BatchRun::IsSmall& is_small, SmallFiles& small_files,
                const MoveOne& move_one) {
    const auto move_carefully = [&](const std::vector<std::size_t>& files) {
        for (const std::size_t file : files) {
            worker.file = file;
            worker.run.started(file);
            worker.run.ended(file, move_one(file));
        }
    };
    while (true) {
        const auto share = worker.run.take(is_small, most_small_files);
        if (share.are_small) {
            move_carefully(small_files.move(share.files));
            continue;
        }
        move_carefully(small_files.finish());
        move_carefully(share.files);
        if (share.files.empty()) {
            return;
        }
    }
}

}  // namespace transmit::detail
