#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"
#include "src/roster/published_node.h"
#include "src/shared/node_record.h"
#include "src/shared/transmit_statistics.h"

// The live nodes, oldest first, and the snapshot of their figures that the command port publishes.
// Every function may be called from any thread.
//
// Two lockers, so that nodes come and go while a snapshot is copied or its document is written:
// `node_locker_` guards the nodes, `snapshot_locker_` the snapshot. A refresh takes `node_locker_`
// while it holds `snapshot_locker_`, and only while it reads the nodes.
class Roster : private Kestin::Base::Uncopy {
  public:
    // Writes the document of a snapshot to the end of `out`.
    using DocumentWriter = void (*)(const std::list<NodeRecord>& records, std::string& out);

    explicit Roster(DocumentWriter write_document) : write_document_(write_document) {}

    // Appends the node. Constant time.
    void add(PublishedNode* node);
    // Removes every entry equal to `node`. Constant time for each. After it returns, no refresh
    // reads the node.
    void remove(PublishedNode* node);
    std::uint64_t size();

    // Makes the next request for the snapshot refresh it. Called after a node came or went.
    void note_change() { is_changed_ = true; }

    // Seconds for which a snapshot stays valid while no node comes or goes.
    void set_update_interval(std::uint64_t seconds) { update_interval_ = seconds; }

    // The records of the snapshot and its document. Both refresh the snapshot first if it is due.
    // The document is written once for each snapshot and shared among all who ask for it.
    std::list<NodeRecord> records();
    std::shared_ptr<const std::string> document();

    // The totals of the last snapshot. Refreshes nothing.
    TransmitStatistics statistics();
    // Refreshes the snapshot if it is due.
    void refresh_if_due();

    // Empties the roster, forgets the snapshot and returns the nodes that were on the roster.
    std::list<PublishedNode*> clear();

  private:
    bool is_due() const KESTIN_REQUIRES(snapshot_locker_);
    void refresh_if_due_since(std::uint64_t refreshes) KESTIN_REQUIRES(snapshot_locker_);
    void refresh() KESTIN_REQUIRES(snapshot_locker_);
    void read_nodes() KESTIN_REQUIRES(snapshot_locker_);

    const DocumentWriter write_document_;
    std::atomic<std::uint64_t> update_interval_ = 3;
    std::atomic<bool> is_changed_ = false;
    // Refreshes that have begun.
    std::atomic<std::uint64_t> refreshes_ = 0;

    Kestin::Base::WindowsThreadLocker node_locker_{nullptr};
    std::list<PublishedNode*> nodes_ KESTIN_GUARDED_BY(node_locker_);
    // Where each node stands in `nodes_`.
    std::unordered_multimap<PublishedNode*, std::list<PublishedNode*>::iterator> places_
        KESTIN_GUARDED_BY(node_locker_);

    Kestin::Base::WindowsThreadLocker snapshot_locker_{nullptr};
    std::list<NodeRecord> records_ KESTIN_GUARDED_BY(snapshot_locker_);
    TransmitStatistics statistics_ KESTIN_GUARDED_BY(snapshot_locker_);
    // Null until somebody asks for the document of this snapshot.
    std::shared_ptr<const std::string> document_ KESTIN_GUARDED_BY(snapshot_locker_);
    // What the next document will take, going by the last one.
    std::size_t document_size_ KESTIN_GUARDED_BY(snapshot_locker_) = 0;
    // When the last refresh ended, of kestin_time; 0 if there is no snapshot.
    std::uint64_t update_time_ KESTIN_GUARDED_BY(snapshot_locker_) = 0;
};
