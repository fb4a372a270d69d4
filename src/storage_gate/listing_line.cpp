#include "src/storage_gate/listing_line.h"

#include "src/shared/locker_guard.h"

void ListingLine::set_count(int count) {
    const LockerGuard guard(locker_);
    free_ = count;
}

bool ListingLine::enter(Ticket& ticket, Clock::time_point now) {
    const LockerGuard guard(locker_);
    if (ticket == 0) {
        ticket = ++last_ticket_;
    }
    waiting_[ticket] = now;
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

// Whether there is a place for each that stands before the ticket, and for the ticket too.
bool ListingLine::is_next(Ticket ticket, Clock::time_point now) {
    int places = free_;
    for (auto holder = waiting_.begin(); places > 0 && holder != waiting_.end();) {
        if (holder->first == ticket) {
            return true;
        }
        if (now - holder->second > absence_limit) {
            holder = waiting_.erase(holder);
        } else {
            ++holder;
            --places;
        }
    }
    return false;
}
