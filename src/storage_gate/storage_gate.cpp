#include "src/storage_gate/storage_gate.h"

#include <algorithm>

namespace {

// Callbacks that all storages together may have at work: fewer than there may be threads.
constexpr int most_callbacks = 192;
// The share of one storage.
constexpr int least_share = 4;
constexpr int largest_share = 64;

// Listings that one storage may have at work, and about as many as all have while storages are few.
constexpr int most_listings = 2;

}  // namespace

void StorageGate::open(const std::vector<std::uint32_t>& storage_ids) {
    const int count = std::max(static_cast<int>(storage_ids.size()), 1);
    for (const std::uint32_t id : storage_ids) {
        StorageWork& storage = storages_[id];
        storage.callbacks.set_count(std::clamp(most_callbacks / count, least_share, largest_share));
        storage.listings.set_count(std::max(most_listings / count, 1));
    }
}

StorageWork* StorageGate::find(std::uint32_t storage_id) {
    const auto storage = storages_.find(storage_id);
    return storage == storages_.end() ? nullptr : &storage->second;
}

StoragePass::~StoragePass() {
    if (listings_ != nullptr) {
        listings_->leave();
    }
    for (StorageWork* storage : {first_, second_}) {
        if (storage != nullptr) {
            storage->callbacks.leave();
        }
    }
}

bool StoragePass::enter(StorageWork* storage) {
    if (storage == nullptr || storage == first_) {
        return true;
    }
    if (!storage->callbacks.enter()) {
        return false;
    }
    (first_ == nullptr ? first_ : second_) = storage;
    return true;
}

bool StoragePass::enter_listings(StorageWork& storage, ListingLine::Ticket& ticket,
                                 std::size_t last_size) {
    if (!storage.listings.enter(ticket, last_size, ListingLine::Clock::now())) {
        return false;
    }
    listings_ = &storage.listings;
    return true;
}
