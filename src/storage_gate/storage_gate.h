#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "kestin_base/uncopy.h"
#include "src/storage_gate/listing_line.h"
#include "src/storage_gate/places.h"

// The work on one storage.
struct StorageWork {
    // Callbacks that may wait for the storage's disk at a time.
    Places callbacks;
    ListingLine listings;
};

// Keeps one storage from occupying all threads: a disk that hangs blocks every callback that
// touches it, so each storage has a share of the threads and no more.
class StorageGate : private Kestin::Base::Uncopy {
  public:
    // Sets the shares of these storages. Called while no callback runs.
    void open(const std::vector<std::uint32_t>& storage_ids);

    // Null for a storage that isn't there. The result stays valid for the life of the gate.
    StorageWork* find(std::uint32_t storage_id);

  private:
    std::map<std::uint32_t, StorageWork> storages_;
};

// What a callback holds of the gate, until the callback ends.
class StoragePass : private Kestin::Base::Uncopy {
  public:
    StoragePass() = default;
    ~StoragePass();

    // Each is false if there is no place; then the callback is postponed. Null and a storage that
    // the pass is for already need no place.
    bool enter(StorageWork* storage);
    // Of a storage that was entered; the other arguments as for ListingLine::enter.
    bool enter_listings(StorageWork& storage, ListingLine::Ticket& ticket, std::size_t last_size);

  private:
    // The storage of a request, and that of the transfer which the request replaces.
    StorageWork* first_ = nullptr;
    StorageWork* second_ = nullptr;
    ListingLine* listings_ = nullptr;
};
