#include "src/storage_gate/listing_line.h"

#include "src/shared/locker_guard.h"

void ListingLine::set_count(int count) {
    const LockerGuard guard(locker_);
    free_ = count + 1;
}

bool ListingLine::enter(Ticket& ticket, std::size_t last_size, Clock::time_point now) {
    const LockerGuard guard(locker_);
    if (ticket == 0) {
        ticket = ++last_ticket_;
    }
    waiting_[ticket] = {last_size >= long_listing, now};
    if (!is_next(ticket, now)) {
        return false;
    }
    waiting_.erase(ticket);
    ticket = 0;
    --free_;
    return true;
}

void ListingLine::leave() {
    const LockerGuard guard(locker_);
    ++free_;
}

void ListingLine::give_up(Ticket& ticket) {
    const LockerGuard guard(locker_);
    waiting_.erase(ticket);
    ticket = 0;
}

// Whether there is a place for each that stands before the ticket, and for the ticket too. The last
// place isn't for those who got a long listing.
bool ListingLine::is_next(Ticket ticket, Clock::time_point now) {
    int places = free_;
    int places_of_long = free_ - 1;
    for (auto holder = waiting_.begin(); places > 0 && holder != waiting_.end();) {
        const auto& [number, facts] = *holder;
        const bool is_served = !facts.is_long || places_of_long > 0;
        if (number == ticket) {
            return is_served;
        }
        if (now - facts.shown > absence_limit) {
            holder = waiting_.erase(holder);
            continue;
        }
        if (is_served) {
            --places;
            --places_of_long;
        }
        ++holder;
    }
    return false;
}
