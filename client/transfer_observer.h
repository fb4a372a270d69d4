#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "client/error.h"
#include "client/transfer.h"

namespace transmit {

// Who watches a batch. The calls come from the batch's threads but never overlap; a slow one holds
// the transfers up. A file is told by its place in the batch's list of files. For each file that
// was begun: started, then anything, then done or failed.
class TransferObserver {
  public:
    virtual ~TransferObserver() = default;

    virtual void started(std::size_t file) { (void)file; }
    // The target proved a folder: the path that the file gets in it.
    virtual void placed(std::size_t file, const std::string& path) { (void)file, (void)path; }
    // After each piece that moved, so up to some thousand times a second; `done` may fall back.
    virtual void progressed(std::size_t file, const Progress& progress) {
        (void)file, (void)progress;
    }
    // Nothing has moved for WaitLimits::stall; the connection is still waited for.
    virtual void stalled(std::size_t file) { (void)file; }
    // Another attempt follows after `pause`; without progress no more are made after `left`.
    virtual void retrying(std::size_t file, const Error& reason, std::chrono::milliseconds pause,
                          std::chrono::milliseconds left) {
        (void)file, (void)reason, (void)pause, (void)left;
    }
    // What was stored, or the source, proved another: from the beginning. A sentence, no full stop.
    virtual void started_over(std::size_t file, const std::string& reason) {
        (void)file, (void)reason;
    }
    virtual void done(std::size_t file, const TransferReport& report) { (void)file, (void)report; }
    virtual void failed(std::size_t file, const Error& error) { (void)file, (void)error; }
};

}  // namespace transmit
