#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"
#include "src/shared/node_record.h"

// The record of a node while the node works. One thread at a time writes it, from the callbacks of
// the node's connection; any thread copies it meanwhile, without a data race: the numbers, which
// change with every block, are atomics, the texts, which rarely change, stand behind a locker that
// a block doesn't touch.
class LiveNodeRecord : private Kestin::Base::Uncopy {
  public:
    // As it stands on a node without a peer.
    void reset(std::uint64_t node_id);

    void set_peer(std::string_view address, std::uint16_t port);
    void set_user_info(std::string_view user_info);

    // The figures of a running transfer. A file name that stands there already costs a comparison.
    void set_transfer(NodeType type, std::string_view filename, std::uint64_t filesize,
                      double progress);
    // No transfer runs; the type stays.
    void clear_transfer();

    // From the thread that takes the snapshot.
    void set_speed(double speed) { speed_.store(speed, std::memory_order_relaxed); }
    void set_progress(double progress) { progress_.store(progress, std::memory_order_relaxed); }
    NodeType type() const { return type_.load(std::memory_order_relaxed); }
    void copy_to(NodeRecord& out) const;

  private:
    void write_filename(std::string_view filename);

    std::atomic<NodeType> type_{NodeType::message};
    std::atomic<double> speed_{0};
    std::atomic<double> progress_{0};
    std::atomic<std::uint64_t> filesize_{0};

    Kestin::Base::WindowsThreadLocker locker_{nullptr};
    // The rest of the record: what stands above has no meaning in it.
    NodeRecord rest_ KESTIN_GUARDED_BY(locker_);
};
