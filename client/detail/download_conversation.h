#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "client/detail/download_targets.h"
#include "client/detail/file_watch.h"
#include "client/detail/part_file.h"
#include "client/error.h"

namespace transmit::detail {

// One download with all care: it grows as a part, in one stream or several, goes on over broken
// connections, checks what an earlier run left, and begins anew when the source changes.
class DownloadConversation {
  public:
    // All must outlive the conversation.
    DownloadConversation(Worker& worker, DownloadTargets& targets, const DownloadJob& job,
                         int streams);

    Result<TransferReport> run();

  private:
    using Clock = std::chrono::steady_clock;

    Result<TransferReport> attempt(Connection& connection);
    Result<FileStamp> prepare(Connection& connection);
    bool is_begun() const;
    Result<void> open_part();
    std::deque<std::size_t> segments_to_fetch() const;
    Result<void> fetch_rest(Connection& connection);
    void start_helpers();
    void fetch_waiting();
    std::optional<std::size_t> take_waiting();
    void note(const Result<void>& outcome);
    Result<void> fetch_on_new_connection(std::size_t segment);
    Result<void> fetch(Connection& connection, std::size_t segment, bool requested);
    Result<void> fetch_stream(Connection& connection, std::size_t segment, bool requested);
    Result<void> receive(Connection& connection, std::size_t segment, std::int64_t start);
    bool takes_long(std::int64_t moved, Clock::duration time) const;
    Result<void> split();
    Result<void> take(std::size_t segment, std::span<const iovec> pieces, std::int64_t& position);
    Result<void> compare(const iovec& piece, std::int64_t position) const;
    Result<TransferReport> conclude(Connection& connection);
    Result<void> source_is_unchanged(Connection& connection) const;
    Result<void> start_over(const Error& reason);
    Result<bool> is_there(Connection& connection) const;

    Worker& worker_;
    const BatchRun& run_;
    DownloadTargets& targets_;
    const DownloadJob& job_;
    const int streams_;
    FileWatch watch_;
    std::optional<PartFile> part_;
    FileStamp source_;
    bool requested_ = false;     // all data, together with the prepare
    std::vector<char> checked_;  // by segment: what is stored is this run's or was looked at

    std::mutex lock_;  // of the two below
    std::deque<std::size_t> waiting_;
    std::optional<Error> failure_;  // the first one of the attempt
    std::deque<std::jthread> helpers_;
};

}  // namespace transmit::detail
