#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "client/detail/batch_run.h"
#include "client/transfer.h"

namespace transmit::detail {

// How far one file has come over all its attempts: what the observer, the report and the time limit
// of the retries go by.
class FileWatch {
  public:
    explicit FileWatch(Worker& worker) : worker_(worker), file_(worker.file) {}

    // An attempt goes on behind `offset` bytes. What the first one found was there before.
    void goes_on(std::int64_t offset, std::int64_t total);
    // So many bytes more; several threads at once.
    void moved(std::size_t size);
    // So many bytes that were only compared with what is there.
    void compared(std::size_t size);
    // Nothing of what came before counts any more.
    void starts_over(const std::string& reason);

    // True if an attempt began to move bytes.
    bool has_begun() const { return begun_; }
    TransferReport report() const;

  private:
    void tell();

    Worker& worker_;
    const std::size_t file_;
    std::mutex lock_;
    Progress progress_;
    std::int64_t furthest_ = 0;
    std::int64_t moved_ = 0;
    bool begun_ = false;
};

}  // namespace transmit::detail
