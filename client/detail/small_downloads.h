#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/detail/batch_run.h"

namespace transmit::detail {

// Fetches small files whose sizes a listing told, all of a run with one write: the requests of the
// next go out before the answers of the former have come. Whatever isn't as expected is left to the
// careful way.
class SmallDownloads {
  public:
    // Both must outlive the object.
    SmallDownloads(Worker& worker, const std::vector<DownloadJob>& jobs)
        : worker_(worker), jobs_(jobs) {}

    // Gives back the files that need the careful way.
    std::vector<std::size_t> move(const std::vector<std::size_t>& files);

    // The largest small file: a run of them fits what a connection may have under way.
    static constexpr std::int64_t small_size = 128L * 1024;

  private:
    bool is_there(std::size_t file) const;
    Result<void> ask(Connection& connection, const std::vector<std::size_t>& files);
    Result<bool> receive(Connection& connection, const DownloadJob& job);
    Result<void> receive_data(Connection& connection);

    Worker& worker_;
    const std::vector<DownloadJob>& jobs_;
    std::string data_;
};

}  // namespace transmit::detail
