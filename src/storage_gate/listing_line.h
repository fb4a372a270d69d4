#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"

// Lets the listings of one storage in, a few at a time and in the order in which they were asked
// for. A listing of a large folder takes a processor for a while, so the number of listings at work
// decides how long all other requests wait. One place more is for those who didn't get a long
// listing last, so that they don't wait for clients that list large folders all the time. Every
// function may be called from any thread.
class ListingLine : private Kestin::Base::Uncopy {
  public:
    using Clock = std::chrono::steady_clock;

    // A place in the line; 0, none.
    using Ticket = std::uint64_t;

    // From how many bytes on a listing is long.
    static constexpr std::size_t long_listing = std::size_t{16} * 1024;

    // A ticket that wasn't shown for so long doesn't hold up those behind it.
    static constexpr auto absence_limit = std::chrono::seconds(1);

    // How many are at work at a time, the one more not counted. Called while nobody is in; without
    // it nobody gets in.
    void set_count(int count);

    // Lets the holder of the ticket in if it is its turn, and takes the ticket back. Otherwise the
    // holder keeps its ticket, or gets one, and shows it again a little later. `last_size`: the
    // bytes of the listing that the holder got last; 0, none.
    bool enter(Ticket& ticket, std::size_t last_size, Clock::time_point now);
    void leave();

    // The holder gives up waiting.
    void give_up(Ticket& ticket);

  private:
    struct Holder {
        bool is_long;  // got a long listing last
        Clock::time_point shown;
    };

    bool is_next(Ticket ticket, Clock::time_point now) KESTIN_REQUIRES(locker_);

    Kestin::Base::WindowsThreadLocker locker_{nullptr};
    int free_ KESTIN_GUARDED_BY(locker_) = 0;
    Ticket last_ticket_ KESTIN_GUARDED_BY(locker_) = 0;
    std::map<Ticket, Holder> waiting_ KESTIN_GUARDED_BY(locker_);
};
