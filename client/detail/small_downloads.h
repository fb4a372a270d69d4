#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/detail/download_targets.h"
#include "client/detail/small_files.h"

namespace transmit::detail {

// Fetches small files whose sizes a listing told.
class SmallDownloads : public SmallFiles {
  public:
    // All must outlive the object.
    SmallDownloads(Worker& worker, DownloadTargets& targets, const std::vector<DownloadJob>& jobs)
        : SmallFiles(worker, most_under_way), targets_(targets), jobs_(jobs) {}

    // The largest small file: a run of them fits what a connection may have under way.
    static constexpr std::int64_t small_size = 128L * 1024;

  private:
    static constexpr std::size_t most_under_way = 1;

    void send(Connection& connection, const std::vector<std::size_t>& files) override;
    void conclude(Connection& connection, const Run& run) override;

    bool is_there(std::size_t file);
    void ask(Connection& connection, const Run& run);
    Result<bool> receive(Connection& connection, const DownloadJob& job);
    Result<bool> receive_data(Connection& connection, std::int64_t size);

    DownloadTargets& targets_;
    const std::vector<DownloadJob>& jobs_;
    std::string data_;
};

}  // namespace transmit::detail
