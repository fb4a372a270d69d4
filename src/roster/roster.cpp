#include "src/roster/roster.h"

#include <utility>

#include "kestin_base/clock.h"
#include "src/roster/tally.h"
#include "src/shared/locker_guard.h"

// The list's node is made before the place is, so that a lack of memory changes nothing.
void Roster::add(PublishedNode* node) {
    std::list<PublishedNode*> entry{node};
    const LockerGuard guard(node_locker_);
    places_.emplace(node, entry.begin());
    nodes_.splice(nodes_.end(), entry);
}

void Roster::remove(PublishedNode* node) {
    std::list<PublishedNode*> removed;
    const LockerGuard guard(node_locker_);
    const auto [begin, end] = places_.equal_range(node);
    for (auto place = begin; place != end; ++place) {
        removed.splice(removed.end(), nodes_, place->second);
    }
    places_.erase(begin, end);
}

std::uint64_t Roster::size() {
    const LockerGuard guard(node_locker_);
    return nodes_.size();
}

std::list<NodeRecord> Roster::records() {
    const std::uint64_t refreshes = refreshes_;
    const LockerGuard guard(snapshot_locker_);
    refresh_if_due_since(refreshes);
    return records_;
}

std::shared_ptr<const std::string> Roster::document() {
    const std::uint64_t refreshes = refreshes_;
    const LockerGuard guard(snapshot_locker_);
    refresh_if_due_since(refreshes);
    if (document_ == nullptr) {
        std::string document;
        document.reserve(document_size_);
        write_document_(records_, document);
        document_size_ = document.size() + document.size() / 8;
        document_ = std::make_shared<const std::string>(std::move(document));
    }
    return document_;
}

void Roster::refresh_if_due() {
    const std::uint64_t refreshes = refreshes_;
    const LockerGuard guard(snapshot_locker_);
    refresh_if_due_since(refreshes);
}

TransmitStatistics Roster::statistics() {
    const LockerGuard guard(snapshot_locker_);
    return statistics_;
}

std::list<PublishedNode*> Roster::clear() {
    const LockerGuard snapshot_guard(snapshot_locker_);
    records_.clear();
    statistics_ = {};
    document_ = nullptr;
    update_time_ = 0;
    is_changed_ = false;
    const LockerGuard node_guard(node_locker_);
    places_.clear();
    return std::exchange(nodes_, {});
}

bool Roster::is_due() const {
    return is_changed_ || Kestin::Base::kestin_time() >= update_time_ + update_interval_;
}

// A caller read `refreshes_` before it waited for the locker. A refresh that began since then shows
// all that had happened when the caller asked, so however many callers wait, two refreshes serve
// them.
void Roster::refresh_if_due_since(std::uint64_t refreshes) {
    const bool has_snapshot = update_time_ != 0;
    if (!has_snapshot || (refreshes == refreshes_ && is_due())) {
        refresh();
    }
}

// The change is cleared before the nodes are read, so that a node which comes or goes meanwhile
// counts at the next request. Until the end there is no snapshot, for memory may run out.
void Roster::refresh() {
    ++refreshes_;
    is_changed_ = false;
    update_time_ = 0;
    document_ = nullptr;
    read_nodes();
    statistics_ = tally(records_);
    statistics_.last_data_update_time = Kestin::Base::kestin_time();
    update_time_ = statistics_.last_data_update_time;
}

// Overwrites the records of the last snapshot: nothing is allocated while nodes wait.
void Roster::read_nodes() {
    records_.resize(size());
    const LockerGuard guard(node_locker_);
    records_.resize(nodes_.size());
    auto record = records_.begin();
    for (PublishedNode* node : nodes_) {
        node->get_node_record(*record++);
    }
}
