#include "client/detail/file_watch.h"

namespace transmit::detail {

void FileWatch::goes_on(std::int64_t offset, std::int64_t total) {
    const std::lock_guard guard(lock_);
    if (!begun_) {
        progress_.resumed_from = furthest_ = offset;
        begun_ = true;
    }
    progress_.done = offset;
    progress_.total = total;
    tell();
}

void FileWatch::moved(std::size_t size) {
    const std::lock_guard guard(lock_);
    moved_ += static_cast<std::int64_t>(size);
    progress_.done += static_cast<std::int64_t>(size);
    if (progress_.done > furthest_) {
        furthest_ = progress_.done;
        worker_.server.progressed();
    }
    tell();
}

void FileWatch::compared(std::size_t size) {
    const std::lock_guard guard(lock_);
    moved_ += static_cast<std::int64_t>(size);
}

void FileWatch::starts_over(const std::string& reason) {
    const std::lock_guard guard(lock_);
    progress_.resumed_from = 0;
    furthest_ = 0;
    worker_.run.tell([&](TransferObserver& observer) { observer.started_over(file_, reason); });
}

TransferReport FileWatch::report() const {
    TransferReport report;
    report.size = progress_.total;
    report.resumed_from = progress_.resumed_from;
    report.moved = moved_;
    return report;
}

void FileWatch::tell() {
    worker_.run.tell([this](TransferObserver& observer) { observer.progressed(file_, progress_); });
}

}  // namespace transmit::detail
